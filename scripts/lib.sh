# What the scripts share: where the project is, and the packages that it needs. To be sourced, not run.
# shellcheck shell=bash

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

say() {
    printf '%s\n' "$*"
}

fail() {
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    exit 1
}

# The packages of one section of scripts/packages.
packagesOf() {
    awk -v section="$1" '/^# section: / { wanted = $3 == section; next } wanted && /^[^#]/' "$root/scripts/packages"
}

# The packages of the sections that are not installed.
missingPackages() {
    local section
    for section in "$@"; do
        packagesOf "$section"
    done | sort -u | comm -23 - <(dpkg-query --show --showformat='${db:Status-Status} ${Package}\n' \
        | sed -n 's/^installed //p' | sort -u)
}

asAdministrator() {
    if ((EUID == 0)); then
        "$@"
    else
        sudo "$@"
    fi
}

# The services and timers that packages of the list bring.
readonly kServices=(/etc/init.d/{nginx,php8.2-fpm,postgresql} /lib/systemd/system/{man-db,phpsessionclean}.timer)

# Installs packages without starting their services, now or with the machine: what needs one runs its own.
installPackages() (
    policy=/usr/sbin/policy-rc.d
    new=()
    options=()
    for service in "${kServices[@]}"; do
        [[ -e $service ]] || new+=("$service")
    done
    if [[ ! -e $policy ]]; then
        # Debian starts whatever it installs, unless this file says no.
        trap 'asAdministrator rm -f "$policy"' EXIT
        printf '#!/bin/sh\nexit 101\n' | asAdministrator install -m 755 /dev/stdin "$policy"
    fi
    asAdministrator apt-get update
    # A machine that is made for one run needs no package to survive a loss of power.
    [[ ${CI:-} != true ]] || options+=(-o Dpkg::Options::=--force-unsafe-io)
    asAdministrator env DEBIAN_FRONTEND=noninteractive apt-get install --yes --no-install-recommends "${options[@]}" "$@"
    for service in "${new[@]}"; do
        [[ ! -e $service ]] || disableService "$service"
    done
)

# Takes the file that a service or timer is known by.
disableService() {
    local name=${1##*/}
    if [[ $name != *.timer ]]; then
        asAdministrator /usr/sbin/update-rc.d "$name" disable
    elif command -v systemctl >/dev/null; then
        asAdministrator systemctl disable "$name"
    fi
}

# With sudo around a whole script, build/ would belong to root and stop the next run without it.
refuseSudo() {
    if ((EUID == 0)) && [[ ${SUDO_UID:-0} != 0 && $(stat -c %u "$root") == "${SUDO_UID:-}" ]]; then
        fail "run this as yourself, without sudo; it calls sudo for the little that needs it."
    fi
}

# Installs what is missing of the sections, grants the IDs that its tests need, and touches nothing when all of it is
# there.
ensurePackages() {
    (($#)) || fail "ensurePackages needs the sections"
    refuseSudo
    command -v dpkg-query >/dev/null || fail "this needs Debian's packages of scripts/packages; here is no dpkg."
    local missing
    mapfile -t missing < <(missingPackages "$@")
    if ((${#missing[@]})); then
        installMissing "${missing[@]}"
    fi
    if ((EUID != 0)) && usesSubordinateIds "$@"; then
        ensureSubordinateIds
    fi
}

installMissing() {
    if ((EUID != 0)) && ! command -v sudo >/dev/null; then
        fail "these packages are missing, and there is no sudo to install them with: $*
Ask an administrator to run: apt-get install --no-install-recommends $*"
    fi
    say "installing $*"
    installPackages "$@"
}

# How many users a namespace has that looks like a whole system.
readonly kSubordinateIds=65536

# Whether what the sections are for has users of its own in a namespace, which newuidmap gives out.
usesSubordinateIds() {
    local section
    for section in "$@"; do
        packagesOf "$section"
    done | grep --line-regexp --quiet uidmap
}

# Whether the file (subuid(5)) has a range for the user, by name or by number.
hasRange() {
    awk -F : -v name="$(id --user --name)" -v number="$(id --user)" \
        '$1 == name || $1 == number { found = 1 } END { exit !found }' "$1" 2>/dev/null
}

# The range behind all that the file gives out, and never below where Debian begins.
nextRange() {
    { cat "$1" 2>/dev/null || true; } | awk -F : -v first=100000 -v count="$kSubordinateIds" \
        '$2 + $3 > first { first = $2 + $3 } END { printf "%d-%d\n", first, first + count - 1 }'
}

# Grants the user of this process subordinate IDs, the other users of its namespaces, where it has none: not every account
# is made with some.
ensureSubordinateIds() {
    local command=()
    hasRange /etc/subuid || command+=(--add-subuids "$(nextRange /etc/subuid)")
    hasRange /etc/subgid || command+=(--add-subgids "$(nextRange /etc/subgid)")
    ((${#command[@]})) || return 0
    command=(usermod "${command[@]}" "$(id --user --name)")
    if ((EUID != 0)) && ! command -v sudo >/dev/null; then
        fail "this needs subordinate IDs (subuid(5)), and there is no sudo to grant them with.
Ask an administrator to run: ${command[*]}"
    fi
    say "granting subordinate IDs: ${command[*]}"
    # It takes files that are there.
    asAdministrator touch /etc/subuid /etc/subgid
    asAdministrator env PATH="$PATH:/usr/sbin" "${command[@]}"
}

# Configures the preset, with further arguments of cmake.
configure() {
    local preset=$1
    shift
    cd "$root" || return
    # A packager's compiler may know warnings that ours does not; what lands here has none.
    cmake --preset "$preset" ${CI:+-DKORVALE_WARNINGS_AS_ERRORS=ON} "$@"
}

# The sources of the product as that preset compiles them, each layer as one file, a line each. What is for another
# system is no part of a build.
layersOf() {
    grep --only-matching --perl-regexp '"file": "\K\Q'"$root"'\E/(build/'"$1"'/)?src/[^"]*' \
        "$root/build/$1/compile_commands.json" \
        | grep --invert-match _autogen/ | sort --unique
}

# Builds the preset: everything, or what further arguments of cmake --build name.
build() {
    local preset=$1
    shift
    configure "$preset"
    cmake --build --preset "$preset" "$@"
}
