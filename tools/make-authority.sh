#!/bin/bash
# Makes a throwaway certificate authority and the server certificates that the tests and the trial endpoint use.
#
#   make-authority.sh DIR [NAME]
#
# writes into DIR, which is created if it is missing:
#
#   authority.pem                  the authority to trust
#   trusted/                       the same as a folder of authorities, by the hash of its name
#   localhost.pem, .key            a good server: localhost, 127.0.0.1 and ::1, and endpoint.test for a program that
#                                  is built to submit to another host than this machine, and the host NAME
#   expired.pem, .key              the same names, no longer valid
#   notyet.pem, .key               the same names, not yet valid
#   client.pem, .key               the same names, for the client's side of a connection
#   selfsigned.pem, .key           the same names, signed by its own key
#   otherhost.pem, .key            a valid certificate of another host
#   stranger-authority.pem         an authority that nobody trusts
#   stranger.pem, .key             the good names, issued by that one
#
# The keys of both authorities are thrown away, so nothing more can be issued in their names.
set -euo pipefail

if [ $# -lt 1 ] || [ $# -gt 2 ]; then
    echo "usage: make-authority.sh DIR [NAME]" >&2
    exit 2
fi
mkdir -p "$1"
cd "$1"
umask 077

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cat > "$work/openssl.cnf" <<'END'
[req]
distinguished_name = subject
[subject]
[ca]
default_ca = throwaway
[throwaway]
new_certs_dir = $ENV::WORK
database = $ENV::WORK/index
rand_serial = yes
unique_subject = no
default_md = sha256
policy = anything
[anything]
commonName = supplied
[authority]
basicConstraints = critical, CA:TRUE
keyUsage = critical, keyCertSign
subjectKeyIdentifier = hash
[client]
basicConstraints = critical, CA:FALSE
keyUsage = critical, digitalSignature
extendedKeyUsage = clientAuth
subjectAltName = $ENV::NAMES
[server]
basicConstraints = critical, CA:FALSE
keyUsage = critical, digitalSignature
extendedKeyUsage = serverAuth
subjectAltName = $ENV::NAMES
END
: > "$work/index"
export WORK=$work NAMES=DNS:unused

quietly() {
    local said
    if ! said=$("$@" 2>&1); then
        echo "$said" >&2
        return 1
    fi
}

newRequest() { # name, subject
    quietly openssl req -new -config "$work/openssl.cnf" -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes \
        -subj "/CN=$2" -keyout "$work/$1.key" -out "$work/$1.csr"
}

makeAuthority() { # name, subject
    newRequest "$1" "$2"
    quietly openssl ca -batch -notext -config "$work/openssl.cnf" -selfsign -keyfile "$work/$1.key" \
        -extensions authority -startdate "$recently" -enddate "$later" -in "$work/$1.csr" -out "$1.pem"
}

issue() { # name, subject, subject alternative names, authority, start, end, kind (server)
    newRequest "$1" "$2"
    NAMES=$3 quietly openssl ca -batch -notext -config "$work/openssl.cnf" -cert "$4.pem" -keyfile "$work/$4.key" \
        -extensions "${7:-server}" -startdate "$5" -enddate "$6" -in "$work/$1.csr" -out "$1.pem"
    mv "$work/$1.key" "$1.key"
}

signByItself() { # name, subject, subject alternative names, start, end
    newRequest "$1" "$2"
    NAMES=$3 quietly openssl ca -batch -notext -config "$work/openssl.cnf" -selfsign -keyfile "$work/$1.key" \
        -extensions server -startdate "$4" -enddate "$5" -in "$work/$1.csr" -out "$1.pem"
    mv "$work/$1.key" "$1.key"
}

instant() { date -u -d "$1" +%Y%m%d%H%M%SZ; }

recently=$(instant "-3 days")
yesterday=$(instant "-1 day")
tomorrow=$(instant "+1 day")
later=$(instant "+30 days")
local_names=DNS:localhost,DNS:endpoint.test,IP:127.0.0.1,IP:::1${2:+,DNS:$2}

makeAuthority authority "Throwaway authority"
makeAuthority stranger-authority "Authority that nobody trusts"
issue localhost localhost "$local_names" authority "$recently" "$later"
issue expired localhost "$local_names" authority "$recently" "$yesterday"
issue notyet localhost "$local_names" authority "$tomorrow" "$later"
issue client localhost "$local_names" authority "$recently" "$later" client
signByItself selfsigned localhost "$local_names" "$recently" "$later"
issue otherhost elsewhere.example DNS:elsewhere.example authority "$recently" "$later"
issue stranger localhost "$local_names" stranger-authority "$recently" "$later"

mkdir -p trusted
ln -sf ../authority.pem "trusted/$(openssl x509 -noout -hash -in authority.pem).0"
