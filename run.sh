#!/usr/bin/env bash
# Builds the simulated device and its agent, and runs CAPI commands on them.
#
#   ./run.sh                 examples/source_session.capi, and prints what the device does
#   ./run.sh FILE...         other scripts
#   ./run.sh --listen 9000   serves a test controller on 127.0.0.1:9000, in real time
#   ./run.sh --two-hosts     a sink and a source that find each other over a network, each with its
#                            own mDNS daemon; prints what both do; needs root
#   ./run.sh --report FILE [...]
#                            each of these; writes a picture of the run to FILE, a page for a browser
#   ./run.sh OPTION...       other options of capi-agent (./run.sh --help)
#
# Scripts run 20 times as fast as real time.
set -euo pipefail
called_from=$PWD
cd "$(dirname "${BASH_SOURCE[0]}")"
home=$PWD
. scripts/setup.sh

report=()
if [[ ${1:-} = --report=* ]]; then set -- --report "${1#*=}" "${@:2}"; fi
if [[ ${1:-} = --report && $# -gt 1 ]]; then
    report=(--report "$2")
    shift 2
fi
if [ "${1:-}" = --two-hosts ]; then
    cd "$called_from"
    exec "$home/scripts/two_hosts.sh" "${report[@]}" "${@:2}"
fi

install_packages "${BUILD_PACKAGES[@]}"
build_preset dev build capi-agent miracastSigma device_tool_input device_tool_am

cd "$called_from"
agent=$home/build/bin/capi-agent
case ${1:-} in
    -*) exec "$agent" "${report[@]}" "$@" ;;
    '') set -- "$home/examples/source_session.capi" ;;
esac
exec "$agent" "${report[@]}" --trace --time-scale 20 "$@"
