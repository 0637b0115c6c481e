#!/bin/sh
# Runs a command on a host of scripts/network.sh: $ON_HOST NAME COMMAND [ARGUMENT...]
name=$1
shift
exec ip netns exec "$name" env "DBUS_SYSTEM_BUS_ADDRESS=unix:path=$NETWORK/$name.bus" "$@"
