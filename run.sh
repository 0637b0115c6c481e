#!/usr/bin/env bash
# Builds the simulated device and its agent, and runs CAPI commands on them.
#
#   ./run.sh                 examples/source_session.capi, with what it makes the device do
#   ./run.sh FILE...         other scripts, likewise
#   ./run.sh --listen 9000   serves a test controller on 127.0.0.1:9000, in real time
#   ./run.sh --two-hosts     a sink and a source that find each other over a network, each with its
#                            own mDNS daemon, and what either does (as root)
#   ./run.sh OPTION...       anything else that capi-agent takes (./run.sh --help)
#
# Scripts run with device time 20 times as fast and without the device's log; ANDROID_LOG_TAGS='*:V'
# shows it.
set -euo pipefail
called_from=$PWD
cd "$(dirname "${BASH_SOURCE[0]}")"
home=$PWD
. scripts/setup.sh

if [ "${1:-}" = --two-hosts ]; then
    cd "$called_from"
    exec "$home/scripts/two_hosts.sh" "${@:2}"
fi

install_packages "${BUILD_PACKAGES[@]}"
build_preset dev build capi-agent miracastSigma device_tool_input device_tool_am

cd "$called_from"
agent=$home/build/bin/capi-agent
case ${1:-} in
    -*) exec "$agent" "$@" ;;
    '') set -- "$home/examples/source_session.capi" ;;
esac
export ANDROID_LOG_TAGS=${ANDROID_LOG_TAGS-*:S}
exec "$agent" --trace --time-scale 20 "$@"
