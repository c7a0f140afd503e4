#!/bin/sh
# 80_radio_optimisation.sh: three access points that all start on channel 6, and a controller that settles them
# runs: outside
. "$AP_ROOT/examples/demo/lib.sh"

log_has() { on "$1" grep -q "$3" "/tmp/$2.log"; }
# What `apctl wifi info` says of a radio: "wlan0 channel", "wlan1 power".
radio() { on "$1" apctl wifi info --json | grep -A8 "\"interface\":.*\"$2\"" | sed -n "s/.*\"$3\":[^0-9]*\([0-9]*\).*/\1/p" | head -n 1; }
channels() { for ap in ap1 ap2 ap3; do radio "$ap" "$1" channel; done | xargs; }
all_different() { [ "$(echo "$1" | tr ' ' '\n' | sort -u | wc -l)" -eq 3 ]; }

say "Three access points, each with the measurement service and an agent; time passes forty times as fast."
addresses=
start_network rfo-demo 40 ap1 ap2 ap3
for ap in ap1 ap2 ap3; do
    serve "$ap" measure wifi_measure
    serve "$ap" agent ap_agent
    address=$(on "$ap" sh -c "ip -4 -o addr show br0" | sed -n 's/.*inet \([0-9.]*\).*/\1/p')
    addresses="$addresses $address"
    check "$ap at $address measures on request" wait_for 10 log_has "$ap" measure listening
done
expect "2.4 GHz channels" "$(channels wlan0)" "6 6 6"

say "The controller surveys, decides, applies, and surveys again."
# shellcheck disable=SC2086
seen=$(on ap1 controller $addresses 2>&1)
status=$?
echo "$seen" | show
expect "the controller's verdict" "$status" 0
before=$(echo "$seen" | sed -n 's/^interference before \([0-9]*\), after .*/\1/p')
after=$(echo "$seen" | sed -n 's/^interference before .*, after \([0-9]*\)$/\1/p')
check "the interference fell, from ${before:-unknown} to ${after:-unknown}" [ "${after:-1}" -lt "${before:-0}" ]
expect "access points whose result came back as 27 bytes" "$(echo "$seen" | grep -c ' applied, .* applied$')" 3
check "2.4 GHz channels: $(channels wlan0)" all_different "$(channels wlan0)"
check "5 GHz channels: $(channels wlan1)" all_different "$(channels wlan1)"
check "the radios send more softly: $(radio ap1 wlan0 power) instead of 23" [ "$(radio ap1 wlan0 power)" -lt 23 ]

say "By hand: a power survey leaves an access point's line on the air, so the survey of ap2 finds the other two."
on ap1 apctl rfo survey --power 2>&1 | show
on ap3 apctl rfo survey --power >/dev/null 2>&1
on ap2 apctl rfo survey 2>&1 | show
expect "neighbours in its record" "$(on ap2 apctl rfo survey --json | grep -c '"identity"')" 2
expect "applied" "$(on ap2 apctl rfo apply 13 20 48 160 | awk 'NR > 1 { $1 = ""; print }' | xargs)" \
    "13 20 applied 48 80 applied with another bandwidth"
expect "a scene" "$(on ap2 apctl rfo scene 11v 11r --limits 70,72,65,60)" committed
expect "its protocols and its first limit" "$(on ap2 cfm get kvr_enable_str) $(on ap2 cfm get steerd.lrssi_2)" ";11v;11r -70"
expect "the same scene" "$(on ap2 apctl rfo scene 11v 11r --limits 70,72,65,60)" unchanged

say "By schedule a radio whose clients are busy stays where it is."
expect "after half a minute" "$(on ap1 apctl rfo apply 1 20 36 40 --schedule | awk 'NR > 1 { $1 = $2 = $3 = ""; print }' | xargs)" \
    "not switched not switched"
expect "ap1's channels" "$(radio ap1 wlan0 channel) $(radio ap1 wlan1 channel)" "11 36"
