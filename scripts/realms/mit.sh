# MIT's KDC, sourced by scripts/realm. It serves OTHER.TEST too.
# shellcheck shell=bash disable=SC2034,SC2154  # scripts/realm uses and sets these

needed=(krb5kdc kadmin.local kdb5_util)

other_realms() { # port
    cat <<CONF
    OTHER.TEST = {
        kdc = $address:$1
    }
CONF
}

configure() { # port
    local realm
    export KRB5_KDC_PROFILE=$dir/kdc.conf
    {
        printf '%s\n' '[libdefaults]' 'allow_rc4 = true' '[kdcdefaults]' "kdc_listen = $address:$1" "kdc_tcp_listen = $address:$1" '[realms]'
        for realm in MORWEN.TEST OTHER.TEST; do
            cat <<CONF
$realm = {
    database_name = $dir/$realm
    key_stash_file = $dir/$realm.stash
    acl_file = $dir/kadm5.acl
    dict_file = $dir/none.words
    max_life = 10h 0m 0s
    max_renewable_life = 7d 0h 0m 0s
    master_key_type = aes256-cts-hmac-sha1-96
    supported_enctypes = aes256-cts-hmac-sha1-96:normal aes128-cts-hmac-sha1-96:normal
    default_principal_flags = +preauth
}
CONF
        done
        printf '%s\n' '[logging]' "kdc = FILE:$dir/kdc.log" "admin_server = FILE:$dir/kadmin.log" "default = FILE:$dir/kadmin.log"
    } >"$dir/kdc.conf"
}

make_principals() {
    local realm service type flag
    for realm in MORWEN.TEST OTHER.TEST; do
        kdb5_util create -s -r "$realm" -P master-secret
    done
    # kadmin.local goes on after a query that failed; the keytab and the tickets below show whether all were made.
    {
        echo "add_principal -pw alice-secret alice"
        echo "add_principal -pw bob-secret bob"
        echo "add_principal -pw trust-secret krbtgt/MORWEN.TEST@OTHER.TEST"
        for service in "${services[@]}"; do
            type=$(only_key "$service") flag=''
            ! is_trusted "$service" || flag=+ok_as_delegate
            echo "add_principal -randkey $flag ${type:+-e $type:normal} $service/localhost"
            [ -z "$type" ] || echo "set_string $service/localhost session_enctypes $type"
        done
        echo "ktadd -norandkey -k $dir/service.keytab ${services[*]/%//localhost}"
    } | kadmin.local -r MORWEN.TEST
    kadmin.local -r OTHER.TEST <<QUERIES
add_principal -pw carol-secret carol
add_principal -pw dave-secret dave
add_principal -pw trust-secret krbtgt/MORWEN.TEST@OTHER.TEST
QUERIES
    [ -s "$dir/service.keytab" ]
}

serve() { exec setpriv --pdeathsig KILL krb5kdc -n -r MORWEN.TEST -r OTHER.TEST; }
