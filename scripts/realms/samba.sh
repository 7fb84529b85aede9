# Samba's directory server, sourced by scripts/realm: users in groups, whose tickets say so.
# shellcheck shell=bash disable=SC2034,SC2154  # scripts/realm uses and sets these

needed=(samba samba-tool ldbmodify /usr/bin/python3)
setup_option=--all
base=DC=morwen,DC=test

configure() { # port
    cat >"$dir/smb.conf" <<CONF
[global]
    realm = MORWEN.TEST
    workgroup = MORWEN
    netbios name = DC
    server role = active directory domain controller
    server services = kdc
    interfaces = $address/8
    bind interfaces only = yes
    krb5 port = $1
    kpasswd port = $(($1 + 12000))
    private dir = $dir/samba/private
    state directory = $dir/samba
    cache directory = $dir/samba
    lock directory = $dir/samba
    pid directory = $dir/samba
    ncalrpc dir = $dir/samba/ncalrpc
    winbindd socket directory = $dir/samba/winbindd
    ntp signd socket directory = $dir/samba/ntp
    log file = $dir/kdc.log
    log level = 1
    load printers = no

[sysvol]
    path = $dir/samba/sysvol
    read only = no

[netlogon]
    path = $dir/samba/sysvol/scripts
    read only = no
CONF
}

make_principals() {
    mkdir "$dir/samba"
    samba-tool domain provision --configfile="$dir/smb.conf" --realm=MORWEN.TEST --domain=MORWEN --server-role=dc \
        --dns-backend=NONE --host-name=dc --host-ip="$address" --adminpass=Admin-secret-1
    entries | ldbmodify --configfile="$dir/smb.conf" --url="$dir/samba/private/sam.ldb"
    export_keys service.keytab "${services[@]/%//localhost}"
    export_keys front.keytab front front/localhost morwen/localhost fwd/localhost
}

export_keys() { # keytab, principals...
    /usr/bin/python3 - "$dir/smb.conf" "$dir/$1" "${@:2}" <<'PYTHON'
import sys
from samba import param
from samba.dckeytab import Net  # gives Net the method below
lp = param.LoadParm(sys.argv[1])
net = Net(None, lp)
for name in sys.argv[3:]:
    net.export_keytab(keytab=sys.argv[2], principal=name)
PYTHON
    [ -s "$dir/$1" ]
}

entry() { # name, class, lines...
    printf '\ndn: CN=%s,CN=Users,%s\nchangetype: add\nobjectClass: %s\nsAMAccountName: %s\n' "$1" "$base" "$2" "$1"
    shift 2
    printf '%s\n' "$@"
}

account() { # name, control, lines...
    local class=user
    [[ $1 != *$ ]] || class=computer
    entry "$1" "$class" "userAccountControl: $2" "clearTextPassword:: $(printf '%s-secret' "$1" | iconv -t UTF-16LE | base64 -w 0)" \
        "${@:3}"
}

group() { # name, type, members...
    entry "$1" group "groupType: $2" "${@:3}"
}

# All users have the password NAME-secret. "nested" is in a global group that is in a universal one that is in a
# domain-local one; "many" is in 300 groups. "mail", "sys" and "daemon$", a machine, have or want names of local accounts;
# the second names of "mallory" and "sys" are "games" and "odd@elsewhere.test". "news" is sensitive and cannot be delegated.
# The account "front" of front/localhost may delegate to morwen/localhost and to itself; front.keytab has its keys under both
# names, and those of morwen/localhost and fwd/localhost.
entries() {
    local name types i
    local global=-2147483646 domain_local=-2147483644 universal=-2147483640
    printf 'dn: %s\nchangetype: modify\nreplace: pwdProperties\npwdProperties: 0\n' "$base"
    for name in alice bob nested many mail 'two words'; do
        account "$name" 66048
    done
    account mallory 66048 'userPrincipalName: games@MORWEN.TEST'
    account sys 66048 'userPrincipalName: odd@elsewhere.test'
    account 'daemon$' 69632
    account news $((66048 + 1048576))
    account front 66048 'servicePrincipalName: front/localhost' 'msDS-SupportedEncryptionTypes: 24' \
        'msDS-AllowedToDelegateTo: morwen/localhost' 'msDS-AllowedToDelegateTo: front/localhost'
    for name in "${services[@]}"; do
        case $(only_key "$name") in
            aes256-sha1) types=16 ;;
            aes128-sha1) types=8 ;;
            rc4-hmac) types=4 ;;
            "") types=24 ;;
            aes256-sha2) types=128 ;;
            aes128-sha2) types=64 ;;
        esac
        account "$name" $((66048 + ($(is_trusted "$name" && echo 524288 || echo 0)))) \
            "servicePrincipalName: $name/localhost" "msDS-SupportedEncryptionTypes: $types"
    done
    group staff "$global" "member: CN=nested,CN=Users,$base"
    group company "$universal" "member: CN=staff,CN=Users,$base"
    group readers "$domain_local" "member: CN=company,CN=Users,$base"
    for ((i = 1; i <= 300; ++i)); do
        group "team$i" "$global" "member: CN=many,CN=Users,$base"
    done
}

serve() { exec setpriv --pdeathsig KILL samba --interactive --model=single --configfile="$dir/smb.conf"; }
