#!/bin/sh
# 40_network.sh: the LAN moves to another network and back, a WAN learns a clashing address, the kernel's tables are shown
# runs: in a box
. "$AP_ROOT/examples/demo/lib.sh"

colour=
[ "${AP_COLOUR:-}" != yes ] || colour=--colour
settings() { cfm show | sort; }

home=$(cfm get lan.ip)
new=172.20.5.1
settings >/tmp/before
network=${home%.*}
# The settings that name a host of a network, but for the RADIUS servers, which are no rules of the LAN.
naming() { settings | grep -v radius | grep -c "[=;-]$(echo "$1" | sed 's/\./\\./g')\.[0-9]" || true; }
named=$(naming "$network")

say "The LAN is to move from $home to $new. First a dry run: what would change, old and new."
apctl lan move "$new" --dry-run $colour | head -n 24 | show
say "  ..."
expect "settings after the dry run" "$(settings | cksum)" "$(cksum </tmp/before)"

say "Then the move itself: every rule that names a host follows, in one commit."
check "moved" sh -c "apctl lan move $new | tail -n 1"
expect "settings that named a LAN host and still do" "$(naming "${new%.*}")" "$named"
expect "settings that point into the network that is gone" "$(naming "$network")" 0
say "The guest network's bandwidth rule and the pools of the VLANs are not the LAN's; they stayed."
expect "bandwidth rule 1" "$(cfm get bandwidth.mode.list1)" "$(sed -n 's/^bandwidth.mode.list1=//p' /tmp/before)"
expect "the second pool" "$(cfm get dhcps.list2)" "$(sed -n 's/^dhcps.list2=//p' /tmp/before)"

say "Back again: every setting has its old text, to the byte."
check "moved back" sh -c "apctl lan move $home | tail -n 1"
settings >/tmp/after
check "nothing differs" cmp /tmp/before /tmp/after

say "A wider mask alone moves no rule; only the pool grows to fill the network."
apctl lan move "$new" >/dev/null
nat=$(cfm get adv.snat.list1)
check "widened" sh -c "apctl lan move $new/16 | tail -n 1"
expect "a source NAT rule" "$(cfm get adv.snat.list1)" "$nat"
expect "the pool" "$(cfm get dhcps.start) to $(cfm get dhcps.end)" "172.20.0.1 to 172.20.255.254"
apctl lan move "$new/24" >/dev/null
apctl lan move "$home" >/dev/null

say "The provider of WAN 1 hands out an address of our own LAN's network."
learnt=$network.77
printf 'ip=%s\nmask=255.255.255.0\ngateway=%s.254\ndns1=%s.254\n' "$learnt" "$network" "$network" >/etc/wan1.ini
apctl lan conflicts "$learnt/24" | show
free=$(apctl lan conflicts "$learnt/24" --json | sed -n 's/.*"free_address":[^"]*"\(.*\)".*/\1/p')
expect "the clash is seen" "$(apctl lan conflicts "$learnt/24" >/dev/null && echo free || echo taken)" taken
check "a free address is offered, and the LAN takes it" sh -c "apctl lan move $free | tail -n 1"
check "the WAN can keep its address" sh -c "apctl lan conflicts $learnt/24 | tail -n 1"

say "The state of WAN 1, from its cable, its daemon and its address; its switch port stands for the link eth1."
printf 'wan[1] 4\nwan[2] 5\n' >/etc/lan_wan_port
echo '{"ports": [{"port": 4, "interface": "eth1"}, {"port": 5}]}' >/apbox/world/scenario.json
cfm set wans.flag 2
status() { apctl wan status --json | sed -n 's/.*"status":[^"]*"\(.*\)".*/\1/p' | head -n 1; }
ip link set eth1 down
expect "without a cable" "$(status)" "no cable"
ip link set eth1 up
sleep 0.2
expect "with a cable" "$(status)" "not connected"
cp "$(which sleep)" /tmp/dhcpcd_wan1
/tmp/dhcpcd_wan1 60 &
daemon=$!
wait_for 2 test "$(status)" = connecting || true
expect "while its DHCP client asks" "$(status)" connecting
ip addr add "$learnt/24" dev eth1
expect "with an address" "$(status)" connected
kill "$daemon"
apctl wan status | show

say "The tables show the kernel's truth: a link, its neighbours, its routes, and a static table."
ip link add demo0 type veth peer name demo1
ip link set demo0 up
ip link set demo1 up
ip addr add 192.0.2.1/24 dev demo0
ip neigh add 192.0.2.77 lladdr 02:00:5e:10:00:77 dev demo0
ip route add 198.51.100.0/24 via 192.0.2.254 dev demo0 metric 40
ip route add 10.64.0.0/10 via 192.0.2.253 dev demo0 table staticroute
apctl routes | show
expect "the static route" "$(apctl routes | awk '$5 == "static" { print $1, $2, $3, $4 }')" \
    "10.64.0.0 255.192.0.0 192.0.2.253 demo0"
expect "the client with the MAC 02:00:5E:10:00:77" "$(apctl lan client 02:00:5E:10:00:77)" 192.0.2.77
ip link del demo0
expect "routes over the link that is gone" "$(apctl routes | grep -c demo0 || true)" 0

say "Port mappings and the system log, as other daemons leave them."
printf '203.0.113.9;8080;192.168.0.24;80;TCP;web server\n' >/var/upnpmap
apctl upnp | show
log=$(cfm get syslogs.system.path)
printf '%s\n' '2024-01-01 10:00:00;8;lease granted to 192.168.0.101' 'Jan  1 10:00:01 [kernel] [eth1]: link is up' >>"$log"
apctl syslog -n 2 | show
expect "leases in the newest two lines" "$(apctl syslog -n 2 --type 8 --json | grep -c message)" 1
