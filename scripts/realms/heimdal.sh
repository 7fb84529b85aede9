# Heimdal's KDC, sourced by scripts/realm. Debian's package of it would replace MIT's: scripts/setup --all unpacks it.
# shellcheck shell=bash disable=SC2034,SC2154  # scripts/realm uses and sets these

heimdal=$root/build/heimdal/usr
needed=("$heimdal/lib/heimdal-servers/kdc" "$heimdal/bin/kadmin.heimdal")
setup_option=--all

configure() { # port
    port=$1
    write_kdc_configuration aes256-cts-hmac-sha1-96 aes128-cts-hmac-sha1-96
}

write_kdc_configuration() { # key types that new principals get
    cat >"$dir/kdc.conf" <<CONF
[libdefaults]
    default_realm = MORWEN.TEST

[kdc]
    database = {
        dbname = $dir/heimdal
        realm = MORWEN.TEST
        mkey_file = $dir/heimdal.key
        acl_file = $dir/kadmind.acl
        log_file = $dir/kadmin.log
    }
    require-preauth = yes

[kadmin]
    default_keys = ${*/%/:pw-salt}

[logging]
    kdc = FILE:$dir/kdc.log
    default = FILE:$dir/kdc.log
CONF
}

local_kadmin() { "$heimdal/bin/kadmin.heimdal" --local --realm=MORWEN.TEST --config-file="$dir/kdc.conf"; }

make_principals() {
    local service type
    local_kadmin <<QUERIES
init --realm-max-ticket-life=10h --realm-max-renewable-life=7d MORWEN.TEST
add --use-defaults --password=alice-secret alice
add --use-defaults --password=bob-secret bob
QUERIES
    for type in "" aes256-sha1 aes128-sha1 aes256-sha2 aes128-sha2 rc4-hmac; do
        case $type in
            "") ;;
            *-sha1) write_kdc_configuration "${type%-*}-cts-hmac-sha1-96" ;;
            aes256-sha2) write_kdc_configuration aes256-cts-hmac-sha384-192 ;;
            aes128-sha2) write_kdc_configuration aes128-cts-hmac-sha256-128 ;;
            rc4-hmac) write_kdc_configuration arcfour-hmac-md5 ;;
        esac
        for service in "${services[@]}"; do
            [ "$(only_key "$service")" = "$type" ] || continue
            echo "add --use-defaults --random-key $service/localhost"
            ! is_trusted "$service" || echo "modify --attributes=+ok-as-delegate $service/localhost"
            echo "ext_keytab --keytab=$dir/service.keytab $service/localhost"
        done | local_kadmin
    done
    [ -s "$dir/service.keytab" ]
}

# The KDC writes its process id where root may, under the name that it was called by.
serve() {
    ln -sf "$heimdal/lib/heimdal-servers/kdc" "$dir/${dir##*/}"
    exec setpriv --pdeathsig KILL "$dir/${dir##*/}" --config-file="$dir/kdc.conf" --addresses="$address" --ports="$port"
}

clean_up() { rm -f "/run/${dir##*/}.pid"; }
