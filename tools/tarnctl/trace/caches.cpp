// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/trace/caches.h>

#include <algorithm>
#include <array>
#include <charconv>

namespace tarn::trace
{

namespace
{

using namespace std::literals;

// The caches that 6.12 creates with SLAB_RECLAIM_ACCOUNT or SLAB_TEMPORARY, in byte order.
constexpr std::array reclaimable = {
	"adfs_inode_cache"sv,
	"affs_inode_cache"sv,
	"bch_inode_info"sv,
	"bdev_cache"sv,
	"befs_inode_cache"sv,
	"bfs_inode_cache"sv,
	"bio_post_read_ctx"sv,
	"bkey_cached"sv,
	"btrfs_inode"sv,
	"btrfs_trans_handle"sv,
	"buffer_head"sv,
	"ceph_cap_flush"sv,
	"ceph_dentry_info"sv,
	"ceph_inode_info"sv,
	"cifs_inode_cache"sv,
	"coda_inode_cache"sv,
	"dax_cache"sv,
	"dentry"sv,
	"dlmfs_inode_cache"sv,
	"dquot"sv,
	"efs_inode_cache"sv,
	"erofs_inode"sv,
	"execute_cb"sv,
	"exfat_cache"sv,
	"exfat_inode_cache"sv,
	"ext2_inode_cache"sv,
	"ext4_allocation_context"sv,
	"ext4_fc_dentry_update"sv,
	"ext4_free_data"sv,
	"ext4_inode_cache"sv,
	"ext4_io_end"sv,
	"ext4_prealloc_space"sv,
	"extent_status"sv,
	"f2fs_bio_entry_slab"sv,
	"f2fs_casefolded_name"sv,
	"f2fs_cic_entry"sv,
	"f2fs_dic_entry"sv,
	"f2fs_discard_cmd"sv,
	"f2fs_discard_entry"sv,
	"f2fs_extent_node"sv,
	"f2fs_extent_tree"sv,
	"f2fs_free_nid"sv,
	"f2fs_fsync_inode_entry"sv,
	"f2fs_fsync_node_entry"sv,
	"f2fs_ino_entry"sv,
	"f2fs_inode_cache"sv,
	"f2fs_inode_entry"sv,
	"f2fs_nat_entry"sv,
	"f2fs_nat_entry_set"sv,
	"f2fs_revoke_entry"sv,
	"f2fs_sit_entry_set"sv,
	"f2fs_victim_entry"sv,
	"f2fs_xattr_entry"sv,
	"fat_cache"sv,
	"fat_inode_cache"sv,
	"fscrypt_inode_info"sv,
	"fsverity_info"sv,
	"fuse_inode"sv,
	"gfs2_glock"sv,
	"gfs2_inode"sv,
	"gfs2_quotad"sv,
	"hpfs_inode_cache"sv,
	"i915_request"sv,
	"inode_cache"sv,
	"isofs_inode_cache"sv,
	"isp1760_qh"sv,
	"isp1760_qtd"sv,
	"isp1760_urb_listitem"sv,
	"jbd2_journal_handle"sv,
	"jbd2_journal_head"sv,
	"jbd2_revoke_record_s"sv,
	"jbd2_revoke_table_s"sv,
	"jbd2_transaction_s"sv,
	"jffs2_i"sv,
	"jfs_ip"sv,
	"mb_cache_entry"sv,
	"minix_inode_cache"sv,
	"nfs4_xattr_cache_cache"sv,
	"nfs_direct_cache"sv,
	"nfs_inode_cache"sv,
	"nilfs2_inode_cache"sv,
	"nilfs2_segbuf_cache"sv,
	"nilfs2_transaction_cache"sv,
	"ntfs3_enode_cache"sv,
	"ntfs_inode_cache"sv,
	"ocfs2_dquot_cache"sv,
	"ocfs2_inode_cache"sv,
	"ocfs2_qf_chunk_cache"sv,
	"op_inode_cache"sv,
	"ovl_inode"sv,
	"pending_reservation"sv,
	"proc_inode_cache"sv,
	"qnx4_inode_cache"sv,
	"qnx6_inode_cache"sv,
	"radix_tree_node"sv,
	"reiser_inode_cache"sv,
	"romfs_i"sv,
	"rpc_inode_cache"sv,
	"sock_inode_cache"sv,
	"squashfs_inode_cache"sv,
	"sysv_inode_cache"sv,
	"tracefs_inode_cache"sv,
	"ubifs_inode_slab"sv,
	"udf_inode_cache"sv,
	"ufs_inode_cache"sv,
	"v9fs_inode_cache"sv,
	"vboxsf_inode_cache"sv,
	"vxfs_inode"sv,
	"xfs_buf"sv,
	"xfs_ili"sv,
	"xfs_inode"sv,
	"zonefs_inode_cache"sv,
};
static_assert(std::is_sorted(reclaimable.begin(), reclaimable.end()));

// Likewise, for those whose names the kernel composes.
constexpr std::array reclaimable_prefixes = {
	"dm_bufio_buffer-"sv, "dm_bufio_cache-"sv,	  "erofs_pcluster-"sv,
	"ext4_groupinfo_"sv,  "f2fs_page_array_entry-"sv, "kmalloc-rcl-"sv,
};

} // namespace

bool is_reclaimable(std::string_view cache_name)
{
	return std::binary_search(reclaimable.begin(), reclaimable.end(), cache_name) ||
	       std::any_of(reclaimable_prefixes.begin(), reclaimable_prefixes.end(),
			   [&](std::string_view prefix) { return cache_name.starts_with(prefix); });
}

std::string kmalloc_name(std::uint32_t bytes)
{
	if (bytes != 0 && bytes % (1U << 20) == 0)
		return "kmalloc-" + std::to_string(bytes >> 20) + "M";
	if (bytes != 0 && bytes % (1U << 10) == 0)
		return "kmalloc-" + std::to_string(bytes >> 10) + "k";
	return "kmalloc-" + std::to_string(bytes);
}

// Between "kmalloc-" and the size there may be the kind: kmalloc-rcl-64, kmalloc-cg-1k.
std::uint32_t size_in_name(std::string_view cache_name)
{
	if (!cache_name.starts_with("kmalloc-"))
		return 0;
	const std::string_view size = cache_name.substr(cache_name.rfind('-') + 1);
	const char *end = size.data() + size.size();
	std::uint32_t value = 0;
	const auto [unit, error] = std::from_chars(size.data(), end, value);
	if (error != std::errc{})
		return 0;
	const std::string_view suffix(unit, static_cast<std::size_t>(end - unit));
	const unsigned int shift = suffix == "k" ? 10 : suffix == "M" ? 20 : 0;
	if ((shift == 0 && !suffix.empty()) || value > max_object_bytes >> shift)
		return 0;
	return value << shift;
}

} // namespace tarn::trace
