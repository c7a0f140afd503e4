#!/bin/sh
# Starts the message bus unless it runs, and returns when it answers. Exit status 1: there is no broker on this machine.
socket=/var/run/bus.socket
[ -S $socket ] && exit 0
command -v mosquitto >/dev/null || exit 1
mosquitto -c /etc/mosquitto/bus.conf -d 2>/dev/null || exit 1
tries=200
until [ -S $socket ] || [ $((tries -= 1)) = 0 ]; do sleep 0.01; done
[ -S $socket ]
