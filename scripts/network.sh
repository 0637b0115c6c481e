#!/usr/bin/env bash
# Runs a command beside a network of two hosts, "sink" (192.168.49.2) and "source" (192.168.49.1).
# Each host has an interface wlan0, a D-Bus system bus and an mDNS daemon:
#
#   scripts/network.sh COMMAND [ARGUMENT...]
#
# The command gets two variables: $ON_HOST, a program that runs a command on a host ("$ON_HOST" sink
# COMMAND...), and $NETWORK, a directory with sink.daemon and source.daemon, the output of the
# daemons, and sink.pid and source.pid, their process ids. The exit status is that of the command,
# or 77 if namespaces are not permitted here.
#
# The hosts are network namespaces. Their daemons and files are in a process and a mount namespace,
# whose first process is a second run of this script. However that process ends, the kernel then
# removes everything.
set -euo pipefail
PATH=$PATH:/usr/sbin:/sbin
home=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
export NETWORK=/run/two-hosts
export ON_HOST=$home/scripts/on_host.sh

give_up() { # STATUS REASON
    echo "two hosts: $2" >&2
    exit "$1"
}

outside() { # COMMAND...
    [ "$(id -u)" -eq 0 ] || give_up 77 "needs root, to make network namespaces"
    local namespaces=(unshare --net --mount --pid --fork --mount-proc --kill-child)
    "${namespaces[@]}" true 2>/dev/null ||
        give_up 77 "network, mount and process namespaces are not permitted here"
    . "$home/scripts/setup.sh"
    install_packages avahi-daemon dbus iproute2
    # unshare ignores SIGINT and SIGTERM. It is killed with this shell, and the processes inside
    # with it. Descriptor 3 keeps standard error for the script inside; messages of unshare itself
    # are dropped.
    setpriv --pdeathsig KILL "${namespaces[@]}" "$BASH" "$home/scripts/network.sh" --inside "$@" \
        3>&2 2>/dev/null &
    trap 'end_by INT' INT
    trap 'end_by TERM' TERM
    trap 'end_by HUP' HUP
    wait $!
}

end_by() { # SIGNAL
    # Kill the first process inside; unshare then reaps it. If unshare were killed instead, that
    # process could stay as a zombie.
    local first=
    { read -r first _ <"/proc/$!/task/$!/children"; } 2>/dev/null || true  # the file has no line end
    kill -KILL "${first:-$!}"
    wait $! 2>/dev/null || true
    trap - "$1"
    kill -"$1" $$
}

make_host() { # NAME ADDRESS
    ip -n "$1" address add "$2/24" dev wlan0
    ip -n "$1" link set lo up
    ip -n "$1" link set wlan0 up
    # Allow every user: a daemon that the library starts may change its user.
    cat >"$NETWORK/$1.bus.conf" <<END
<busconfig>
  <listen>unix:path=$NETWORK/$1.bus</listen>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
  </policy>
</busconfig>
END
    dbus-daemon "--config-file=$NETWORK/$1.bus.conf" --nopidfile --fork
    cat >"$NETWORK/$1.conf" <<END
[server]
host-name=$1
allow-interfaces=wlan0
use-ipv6=no
ratelimit-interval-usec=0
[publish]
publish-hinfo=no
publish-workstation=no
[rlimits]
END
    # Give each daemon its own directory for its process id.
    "$ON_HOST" "$1" sh -c 'mount -t tmpfs tmpfs /run/avahi-daemon && exec "$@"' sh \
        avahi-daemon --no-drop-root --no-chroot "--file=$NETWORK/$1.conf" >"$NETWORK/$1.daemon" 2>&1 &
    echo $! >"$NETWORK/$1.pid"
}

await_daemon() { # NAME
    local deadline=$((SECONDS + 60))
    until grep -q 'Server startup complete' "$NETWORK/$1.daemon"; do
        if [ $SECONDS -ge $deadline ]; then
            cat "$NETWORK/$1.daemon" >&2
            give_up 1 "the mDNS daemon of the $1 does not start"
        fi
        sleep 0.1
    done
}

inside() { # COMMAND...
    exec 2>&3 3>&-
    set -E
    trap 'give_up 1 "the hosts cannot be made"' ERR
    mount -t tmpfs -o mode=755 tmpfs /run
    mkdir "$NETWORK" /run/avahi-daemon
    ip netns add sink
    ip netns add source
    ip link add wlan0 netns sink type veth peer name wlan0 netns source
    make_host sink 192.168.49.2
    make_host source 192.168.49.1
    await_daemon sink
    await_daemon source
    trap - ERR
    local status=0
    "$@" || status=$?
    exit $status
}

if [ "${1:-}" = --inside ]; then inside "${@:2}"; else outside "$@"; fi
