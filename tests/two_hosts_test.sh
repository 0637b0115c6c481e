#!/usr/bin/env bash
# Pairs of scripts on two hosts with a real mDNS daemon each: two_hosts_test.sh AGENT [NAME...]
# The pairs are tests/two_hosts/NAME_{sink,source}.capi and those of examples/. Exits with 77 where network
# namespaces are not permitted.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

run_agent() { # HOST SCRIPT
    # The daemons need real time to agree on a name, and one that starts needs more; the library gives
    # them ten seconds of device time.
    local scale=4 host=$1
    case $name in
        daemon_killed) scale=2 ;;
        linked) host=sink ;;  # both agents on one host
    esac
    "$ON_HOST" "$host" "$agent" --peer linked --time-scale $scale --wait-limit 60 --journal "$NETWORK/$1.journal" \
        "$2" >"$NETWORK/$1.out" 2>&1
}

await_entries() { # NUMBER HOST TEXT
    until [ "$(cat "$NETWORK/$2.journal" | grep -c "$3")" -ge "$1" ] || [ -z "$(jobs -r)" ]; do sleep 0.05; done
}

run_pair() { # NAME SINK.capi SOURCE.capi
    local status=0 sink source
    : | tee "$NETWORK"/{sink,source}.journal
    run_agent sink "$2" & sink=$!
    if [ "$1" = daemon_killed ]; then
        await_entries 1 sink 'COMPLETE,InstanceName'
        kill -KILL "$(cat "$NETWORK/sink.pid")"
        await_entries 2 sink 'COMPLETE,InstanceName'
    fi
    run_agent source "$3" & source=$!
    wait $sink || status=1
    wait $source || status=1
    if [ $status -eq 0 ] && [ "$directory" != "$here/two_hosts" ]; then
        /usr/bin/python3 "$here/transcript.py" --journal "$NETWORK/sink.journal" "$2" || status=1
        /usr/bin/python3 "$here/transcript.py" --journal "$NETWORK/source.journal" "$3" || status=1
    fi
    echo "$1: $([ $status -eq 0 ] && echo passed || echo FAILED)"
    [ $status -eq 0 ] || tail -n 400 "$NETWORK"/{sink,source}.{out,journal}
    return $status
}

if [ "$1" != --inside ]; then exec "$here/../scripts/network.sh" "$here/two_hosts_test.sh" --inside "$@"; fi
agent=$2
status=0
for name in "${@:3}"; do
    directory=$here/two_hosts
    [ -f "$directory/${name}_sink.capi" ] || directory=$here/../examples
    run_pair "$name" "$directory/${name}_sink.capi" "$directory/${name}_source.capi" || status=1
done
exit $status
