#!/bin/sh
# 70_product.sh: a unit finds its product profile; its configuration travels to another unit; factory reset and reboot
# runs: outside
. "$AP_ROOT/examples/demo/lib.sh"

kept=$(mktemp -d)
on() { box=$1 && shift && apbox enter "$box" -- "$@"; }
cleanup() { apbox stop --network demo-product >/dev/null 2>&1; rm -rf "$kept"; }
trap 'cleanup; demo_end' EXIT

say "Two units of one network leave the factory."
mkdir "$kept/one" "$kept/two"
check "the first starts" apbox start one --name one --network demo-product --keep "$kept/one" --writable "$kept"
check "the second starts" apbox start two --name two --network demo-product --keep "$kept/two" --writable "$kept"
expect "the first says which model it is" "$(on one cfm get sys.profile.id)" KV-AP620
check "its profile is found and its defaults written" on one sh -c 'apctl device init | grep -c "matched product"'
expect "brand" "$(on one cfm get Brand.config)" Kivra
expect "log-in domain" "$(on one cfm get web.login.domain)" wifi.kivra.lan
expect "defaults are written once" "$(on one cfm get pro_dft_cfg.init)" 2
expect "the lamp's line, from the GPIO map" "$(on one cfm get led.sys.gpio_id)" 8

say "A backup of the first is changed on its way and taken in by the second, which keeps its own identity."
on one cfm set lan.ip 192.168.44.1
on two cfm set AP_UUID unit-two
on two cfm set yd.cloud.id cloud-of-two
on two cfm set url.portal http://own.example/
check "the backup is downloaded" on one apctl backup "$kept/unit.cfg"
sed -i 's/^sys.hostname=.*/sys.hostname=traveller/' "$kept/unit.cfg"
check "the second takes it in" on two apctl restore "$kept/unit.cfg" --keep-urls
expect "its LAN address is the first's" "$(on two cfm get lan.ip)" 192.168.44.1
expect "its name is the changed one" "$(on two cfm get sys.hostname)" traveller
expect "its cloud identity is its own" "$(on two cfm get yd.cloud.id)" cloud-of-two
expect "so is its number" "$(on two cfm get AP_UUID)" unit-two
expect "and its URL setting" "$(on two cfm get url.portal)" http://own.example/

say "Factory reset and reboot: the second unit comes back as it left the factory."
factory=$(on two sed -n 's/^lan\.ip=//p' /webroot_ro/default.cfg | tail -n 1)
before=$(on two cat /apbox/boot)
on two apctl factory-reset >/dev/null 2>&1 || true
check "it starts again" wait_for 20 sh -c "[ \"\$(apbox enter two -- cat /apbox/boot 2>/dev/null)\" != '$before' ]"
expect "its LAN address is the factory's" "$(on two cfm get lan.ip)" "$factory"
expect "and it says that it was reset" "$(on two cfm get set_default)" 1
