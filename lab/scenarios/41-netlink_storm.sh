# SPDX-License-Identifier: GPL-2.0-only
# limit: 40 s
# A storm of datagrams that are not handshakes: each complete one is logged, none is answered, and
# lmkd remains the one that is notified.
. /lab/scenarios/lib.sh

load_all
tarnctl thresholds set slab_leak_k=4294967295 vmalloc_leak_k=4294967295 >/dev/null
tarnctl watch --count 1 --seconds 60 >heard 2>&1 &
watcher=$!
await 10 grep -q -i regist heard
forget_log
netlink_storm 1200 >result
equal "unsupported messages" \
	"$(log_count "$(adapter_line tarn_netlink_lmkd_ready 'type: [0-9]+ not supported')")" \
	"$(sed -n 's/^whole //p' result)"
no_line tarn_netlink_lmkd_ready "NETLINK_LMKD_INIT"
equal "other lines of the channel" \
	"$(klog | grep MEM_ADAPTER | grep -c -v -E ': (type: [0-9]+ not supported|message of [0-9]+ bytes ignored)$' || true)" 0
memcheck notify 42
wait "$watcher" || fail "watch: $(cat heard)"
grep -q 42 heard || fail "not notified: $(cat heard)"
