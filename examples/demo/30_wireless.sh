#!/bin/sh
# 30_wireless.sh: three access points in one house hear one another: clients, surveys, a channel switch, high power
# runs: outside
. "$AP_ROOT/examples/demo/lib.sh"

client() { on "$1" apctl wifi clients | awk -v mac="$2" '$2 == mac { print $3 }'; }
# The channel or the strength at which access point $1 hears a network: its column in the table of a scan.
heard() { on "$1" apctl wifi scan wlan0 --last | awk -v bssid="$2" -v column="$3" '$2 == bssid { print $column }'; }
close_to() { awk -v seen="$1" -v wanted="$2" 'BEGIN { exit !(seen > wanted * 0.7 && seen < wanted * 1.3) }'; }

say "Three access points come up on one network; time passes fifty times as fast."
start_network wireless-demo 50 ap1 ap2 ap3
on ap1 apctl wifi info | show

say "Clients: two addresses are in the online table, one only in the kernel's fallback file."
on ap1 apctl wifi clients | show
expect "from the table" "$(client ap1 02:00:5e:10:00:12)" 192.168.0.112
expect "from the file" "$(client ap1 02:00:5e:10:00:13)" 192.168.0.113

say "Rates come from two samples, twenty seconds apart. 900,000 bytes a second are 7031 kbit/s."
rate=$(on ap1 apctl wifi clients wlan1.0 --rates 20 | awk '$2 == "02:00:5e:10:00:12" { print $NF }')
check "measured $rate kbit/s" close_to "$rate" 7031

say "A survey of the 2.4 GHz band is one scan of five seconds."
on ap1 apctl wifi scan wlan0 | show
expect "networks of the other two access points" "$(on ap1 apctl wifi scan wlan0 --last | grep -c '02:00:5e:0[23]')" 4
say "On a radar channel every channel is scanned by itself, three seconds each."
before=$(on ap2 date +%s)
on ap2 apctl wifi spectrum wlan1 | awk 'NR == 1 || $2 != 0' | show
took=$(($(on ap2 date +%s) - before))
check "24 channels took $took seconds of the device's time" [ "$took" -ge 72 ]
check "there is radar on channel 100 of ap1: it refuses to go there" sh -c "! apbox enter $network-ap1 -- apctl wifi switch wlan1 100 80 2>&1"

say "ap2 leaves the crowded channel 6; its neighbours hear it on 11 at once."
expect "ap1 hears ap2 on channel" "$(heard ap1 02:00:5e:02:24:00 3)" 6
check "switched" on ap2 apctl wifi switch wlan0 11
expect "ap1 hears ap2 on channel" "$(heard ap1 02:00:5e:02:24:00 3)" 11
on ap1 apctl wifi scan wlan0 --last | sed '1,/^$/d' | show

say "The high-power mode, once it is pending, raises both radios to their greatest power."
weak=$(heard ap1 02:00:5e:02:24:00 6)
on ap2 cfm set netcheck.adjust_power 1 >/dev/null
check "switched on" on ap2 apctl wifi power high
strong=$(heard ap1 02:00:5e:02:24:00 6)
expect "ap1 hears ap2 stronger by, in dB" "$((strong - weak))" 3
expect "pending" "$(on ap2 cfm get netcheck.adjust_power)" 0

say "A MAC is cloned: the factory's is saved aside once, and comes back once."
factory=$(on ap1 apctl wifi mac show)
expect "first" "$(on ap1 apctl wifi mac save)" saved
expect "again" "$(on ap1 apctl wifi mac save)" "saved already"
expect "restored" "$(on ap1 apctl wifi mac restore)" restored
expect "the radio's MAC" "$(on ap1 cfm get wlan1_mac)" "$factory"
