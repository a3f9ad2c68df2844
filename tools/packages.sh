# shellcheck shell=bash
# Sourced by the scripts of the top folder.

# What hk_results is built with; without them it is left out.
# shellcheck disable=SC2034
RESULTS_PACKAGES=(libcli11-dev nlohmann-json3-dev libpugixml-dev zlib1g-dev libzstd-dev libjs-dygraphs)

# Runs a command and shows what it prints only when it fails.
quietly() {
    local output
    if ! output=$("$@" 2>&1); then
        printf '%s\n' "$output" >&2
        return 1
    fi
}

# What ./demo fleet runs: the engines that the configurations in fleet/ are for.
# shellcheck disable=SC2034 # the scripts use it
FLEET_PACKAGES=(python3 iproute2 rsyslog rsyslog-relp mtail prometheus prometheus-alertmanager)

# Installs what is missing of the Debian packages named. None of them is started as a service.

need_packages() {
    local missing=()
    for package in "$@"; do
        dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null | grep -qx installed ||
            missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        if ! command -v sudo >/dev/null; then
            echo "Please install these packages as root: ${missing[*]}" >&2
            return 1
        fi
        as_root=(sudo)
    fi
    echo "Installing: ${missing[*]}"
    "${as_root[@]}" apt-get update -qq
    "${as_root[@]}" sh -c "$INSTALL_QUIETLY" sh "${missing[@]}"
}

# Services are not started where this file ends with 101, see invoke-rc.d(8). One that is there stays.
# shellcheck disable=SC2016 # for the other shell
INSTALL_QUIETLY='
    policy=/usr/sbin/policy-rc.d
    if [ ! -e $policy ]; then
        trap "rm -f $policy" EXIT
        printf "#!/bin/sh\nexit 101\n" >$policy && chmod 755 $policy
    fi
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "$@" >/dev/null'

