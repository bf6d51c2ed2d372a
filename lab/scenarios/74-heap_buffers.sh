# SPDX-License-Identifier: GPL-2.0-only
# Page flags on a scatter table, and a DMA heap's buffer mapped for a device with and without the
# platform's IOMMU module.
. /lab/scenarios/lib.sh

load_all

equal "one page each" "$(services flags 400 4096 set)" 400
equal "again" "$(services flags 400 4096 set)" 400
equal "no table" "$(services flags 0 4096 clear)" 400
equal "less than a page" "$(services flags 400 4095 clear)" 400
# Entries start at every third page of the block; every second page gets the flag, up to page 800.
equal "a page and a bit, cleared" "$(services flags 100 8191 clear)" 350
equal "all that were set" "$(services flags 400 4096 clear)" 0
equal "entries of many pages" "$(services flags 60 65536 set)" 960
equal "cleared by other entries" "$(services flags 1 4190208 clear)" 0
refused services flags 513 4096 set

calls=/sys/kernel/debug/tarn_smmu/calls
echo >$calls
mapped="result 0 entries [0-9]* bytes 3145728 same 1"
services dma 3145728 0 >result
grep -q -x "$mapped" result || fail "mapped by the kernel: $(cat result)"
equal "calls of the IOMMU module" "$(cat $calls)" ""

for attrs in 0x0 0x20; do
	echo >$calls
	services dma 3145728 $attrs iommu >result
	grep -q -x "$mapped" result || fail "mapped by the IOMMU module: $(cat result)"
	cut -d ' ' -f 1,2,5- $calls >got
	cat >wanted <<END
map dev=tarn_test_heap dir=0 attrs=$attrs
unmap dev=tarn_test_heap dir=0 attrs=$attrs
END
	diff wanted got || fail "calls of the IOMMU module"
	# Both calls must get the same buffer and table.
	equal "objects" "$(cut -d ' ' -f 3,4 $calls | sort -u | wc -l)" 1
done
echo >$calls
services dma 8192 0 >result
equal "calls once the pointer is gone" "$(cat $calls)" ""
refused services dma 8192 0x40
