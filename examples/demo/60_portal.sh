#!/bin/sh
# 60_portal.sh: guests log in on three access points, expire and are kicked off all of them; a phone code goes its way
# runs: outside
. "$AP_ROOT/examples/demo/lib.sh"

portal() {
    at=$1
    shift
    on "$at" apctl portal "$@" 2>&1
}
online() { portal "$1" clients | grep -c "$2" || true; }
online_everywhere() {
    for ap in ap1 ap2 ap3; do [ "$(online "$ap" "$1")" = "$2" ] || return 1; done
}

say "Three access points, each with the portal's kernel module and its daemon; time passes twenty times as fast."
start_network portal-demo 20 ap1 ap2 ap3
for ap in ap1 ap2 ap3; do
    serve "$ap" module "portal_peers kernel"
    on "$ap" sh -c "echo 'member;secret;02:00:5E:10:00:21,02:00:5E:10:00:22' >/cfg/accounts"
    on "$ap" sh -c "echo 'kv-shop;gateway-pw;Kivra;Your code is ' >/cfg/public"
    on "$ap" cfm set portal.sms_gateway 127.0.0.1 >/dev/null
    serve "$ap" portald "portald --accounts /cfg/accounts --public /cfg/public --redirect 192.168.0.9"
    wait_for 10 on "$ap" apctl portal users
done
serve ap1 gateway "portal_peers gateway"

say "Web traffic of the portal goes to 192.168.0.9, as the kernel lists its rules."
on ap1 iptables -t nat -S ap_portal_dnat_pre | show
expect "rules" "$(on ap1 iptables -t nat -S ap_portal_dnat_pre | grep -c 'dport 80 -j DNAT --to-destination 192.168.0.9')" 2
expect "expected connections" "$(on ap1 cat /proc/sys/net/netfilter/nf_conntrack_expect_max)" 2048

say "A member has two devices of their own; a guest's account is for any device and ends within five minutes."
now=$(on ap1 date +%s)
expiry=$(on ap1 date -d "@$((now + 270))" '+%Y-%m-%d %H:%M')
expect "a guest is refused before" "$(portal ap1 login guest welcome 02:00:5e:10:00:31)" \
    "apctl portal: no such account, or a wrong password"
expect "an account for guests" "$(portal ap1 add guest welcome '*' "$expiry")" added
for ap in ap2 ap3; do portal "$ap" add guest welcome '*' >/dev/null; done
expect "a wrong password" "$(portal ap1 login guest Welcome 02:00:5e:10:00:31)" \
    "apctl portal: no such account, or a wrong password"
expect "the right one" "$(portal ap1 login guest welcome 02:00:5e:10:00:31)" welcome
expect "the member on a stranger's device" "$(portal ap1 login member secret 02:00:5e:10:00:31)" \
    "apctl portal: the device is not bound to this account"
expect "the member on the own device" "$(portal ap1 login member secret 02:00:5e:10:00:21)" welcome
for ap in ap2 ap3; do portal "$ap" login guest welcome 02:00:5e:10:00:31 >/dev/null; done
portal ap1 users | show
portal ap1 clients | show
check "the guest is online at all three" wait_for 5 online_everywhere 02:00:5E:10:00:31 1

say "The sweep of ap1 expires the account: one frame, and the guest is off all three access points."
check "kicked everywhere" wait_for 30 online_everywhere 02:00:5E:10:00:31 0
expect "the member stays" "$(online ap1 02:00:5E:10:00:21)" 1
expect "the guest comes back" "$(portal ap1 login guest welcome 02:00:5e:10:00:31)" "apctl portal: the account is expired"
portal ap1 users | show

say "A phone asks for a code; the gateway gets it, and the daemon accepts nothing else."
number=13800138000 device=02:00:5e:10:00:41
expect "the code is sent" "$(portal ap1 phone ask $number)" "a code is on its way"
request=$(on ap1 grep "to=$number" /tmp/gateway.log)
say "  $request"
code=$(echo "$request" | sed -n 's/.*Your+code+is+\([0-9]*\)%.*/\1/p')
expect "a wrong code" "$(portal ap1 phone check $number $((code % 9000 + 1001)) $device)" "apctl portal: the code is wrong"
expect "the right one" "$(portal ap1 phone check $number "$code" $device)" welcome
check "online" wait_for 5 sh -c "apbox enter $network-ap1 -- apctl portal clients | grep -q $number"
portal ap1 lists black add $number >/dev/null
expect "once on the black list" "$(portal ap1 phone ask $number)" "apctl portal: the number is on the black list"
portal ap1 lists white add 02:00:5e:10:00:51 >/dev/null
expect "a device on the white list" "$(portal ap1 login nobody nothing 02:00:5e:10:00:51)" "the device needs no log-in"
portal ap1 lists | show

say "Who a client is, and the filter of multicasts."
on ap1 sh -c 'echo "[{\"mac\":\"02:00:5e:10:00:41\",\"os\":\"\",\"brand\":\"Kivra\",\"type\":\"IPC\"}]" >/var/type_identify.json'
expect "the maker's camera runs" "$(on ap1 apctl identify $device)" linux
check "the filter is on" on ap1 apctl castfilter on 5
expect "as the device has it" "$(on ap1 cat /var/run/cast_filter)" "enabled 1 value 5 cleared 0"
check "kicked by hand" on ap1 apctl portal kick 02:00:5e:10:00:21
check "nobody is online but the phone" wait_for 5 online_everywhere 02:00:5E:10:00:21 0
