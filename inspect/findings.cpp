#include "inspect/findings.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace yfs::inspect {

namespace {

using enum severity;
using id = finding_id;

constexpr finding_kind kinds[] = {
    {id::image_size, fault, "image-size", "the image has a size that no volume can have",
     "A volume takes 0x8000 to 0x1FFFFF bytes: 4 to 255 erase units of 8192 bytes. Check that the whole partition was "
     "cut out of the flash image, and nothing behind it.",
     "bytes"},
    {id::image_tail, info, "image-tail", "bytes behind the last whole erase unit aren't blank",
     "The size isn't a multiple of 8192. The file system uses whole units only and never touches what follows.",
     "bytes"},
    {id::eu_two_invalid, fault, "eu-two-invalid", "a further erase unit without a valid header",
     "Exactly one unit, the spare, may stand without a valid header. With two of them the volume doesn't open, and "
     "what this unit held (log pages or a group of 122 pages of file contents) is unreachable.",
     "magic"},
    {id::eu_two_incomplete, fault, "eu-two-incomplete", "a further erase unit whose header isn't committed",
     "One interrupted reclaim leaves one such unit. Two of them contradict each other, and the volume doesn't open.",
     "seq"},
    {id::eu_no_spare, fault, "eu-no-spare", "no erase unit is the spare",
     "All units have valid, committed headers, so none can be the target of the next reclaim; the volume doesn't "
     "open.",
     ""},
    {id::eu_spare_not_named, fault, "eu-spare-not-named", "the spare isn't the unit that the newest header names",
     "The header with the highest sequence number names the unit that it replaced, and that one is the spare. Another "
     "unit has lost its header: either the newest unit is an old copy, or the spare is a damaged live unit.",
     "named unit"},
    {id::eu_incomplete_source, fault, "eu-incomplete-source",
     "the uncommitted unit replaced another unit than the one without a header",
     "An interrupted reclaim leaves the unit that it gave up, and the new one names it. Here they don't match, and the "
     "volume doesn't open.",
     "named unit"},
    {id::eu_incomplete_discarded, info, "eu-incomplete-discarded",
     "an interrupted reclaim: the uncommitted unit serves as the spare",
     "Power went after the new header was written and before the old unit was given up. The old unit still stands, and "
     "the new one is erased by the next reclaim.",
     "seq"},
    {id::eu_commit_missing, info, "eu-commit-missing", "an interrupted reclaim: only the commit byte is missing",
     "Power went after the old unit was given up. The new unit counts as done. Opening the volume for writing adds the "
     "missing byte; until then no other unit may be reclaimed.",
     "seq"},
    {id::eu_commit_odd, info, "eu-commit-odd", "the commit byte is neither 0xFF nor 0x00",
     "Every value but 0xFF counts as committed. A cut in the middle of the byte leaves this.", "commit"},
    {id::eu_magic_old, info, "eu-magic-old", "an erase unit with one of the older magic numbers",
     "It is accepted as it is; a reclaim replaces it by the present one.", "magic"},
    {id::eu_spare_untrusted, info, "eu-spare-untrusted", "the header of the spare can't be trusted",
     "A cut in the middle of an erase or a header write leaves this. The erase count of the spare is taken as the "
     "average of the others.",
     "magic"},
    {id::eu_seq_twice, warning, "eu-seq-twice", "two erase units have the same sequence number",
     "Sequence numbers are given once. Which of two log units is newer can't be told.", "seq"},
    {id::eu_erase_count_odd, warning, "eu-erase-count-odd", "an erase count above what the sequence numbers allow",
     "Every reclaim adds one to the sequence number and one to one erase count, so no count exceeds the highest "
     "sequence number. Wear levelling is misled by this; contents aren't concerned.",
     "erase count"},
    {id::eu_erase_spread, info, "eu-erase-spread", "erase counts lie more than 100 apart",
     "The wear rule will move cold data off the least worn unit once the highest count is a multiple of 10.", "spread"},
    {id::eu_no_log, fault, "eu-no-log", "no erase unit holds a log", "The chain table has nowhere to stand.", ""},
    {id::group_off_grid, fault, "group-off-grid", "a data unit whose first page doesn't begin a group",
     "Groups of 122 pages follow each other from the end of the chain table. The volume is refused.", "first page"},
    {id::group_outside, fault, "group-outside", "a data unit whose group lies outside the volume",
     "The group begins inside the chain table or behind the last chunk. The volume is refused.", "first page"},
    {id::group_two_owners, fault, "group-two-owners", "a group that another erase unit holds already",
     "Two units claim the same 122 pages. The first in order of index is used, and what the other one holds is not "
     "seen.",
     "first owner"},
    {id::group_no_owner, fault, "group-no-owner", "a chunk in use lies in a group that no erase unit holds",
     "The contents of these chunks are lost.", "group"},
    {id::group_unowned, info, "group-unowned", "groups of free chunks that no erase unit holds",
     "These chunks can't be written. The volume was laid out for more chunks than its erase units hold, or other "
     "findings tell which unit is missing.",
     "groups"},
    {id::log_record_range, fault, "log-record-range", "a committed log record names a page outside the chain table",
     "The volume doesn't open. Records are chained, so a damaged record also falsifies the one behind it.", "record"},
    {id::log_slot_torn, info, "log-slot-torn", "a log slot that was never committed",
     "Power went while the page was written. The copy before it is in force; this slot and the next one are lost until "
     "their unit is reclaimed.",
     "record"},
    {id::log_behind_end, warning, "log-behind-end", "records behind the end of a log",
     "The log is written front to back and ends at the first untouched record. What follows is never seen.", "record"},
    {id::log_tail_written, info, "log-tail-written", "the unused end of a log unit isn't blank",
     "The last 12 bytes of a log unit are never written or read.", ""},
    {id::frame_unrecorded, warning, "frame-unrecorded", "free slots whose frames aren't blank",
     "A reclaim of a log unit writes its copies before their records; power went in between. The records say that "
     "these slots are free, so the next writes go there, and a real chip can't turn the programmed bits back. On the "
     "simulated chip they are simply overwritten.",
     "slots"},
    {id::frame_unrecorded_idle, info, "frame-unrecorded-idle", "frames without records in a log unit out of use",
     "The same as frame-unrecorded, in a unit that takes no writes before it is erased.", "slots"},
    {id::volume_header_missing, fault, "volume-header-missing", "page 0 holds no volume header",
     "Without the header neither the size of the chain table nor the number of files is known.", "magic"},
    {id::volume_header_files, fault, "volume-header-files", "the header's number of files is out of range",
     "It is 65 or more, and files and chunks together are at most 0xFFFE.", "files"},
    {id::volume_header_size, fault, "volume-header-size", "the header's volume size doesn't fit",
     "It is too small for the chain table, or larger than the flash.", "volume size"},
    {id::volume_header_bytes, info, "volume-header-bytes", "bits of the header that should be 0 are set",
     "The high bits of byte 6 and byte 7 mean nothing to the file system.", "bytes 4 to 7"},
    {id::fat_page_crc, fault, "fat-page-crc", "the newest copy of a page of the chain table fails its checksum",
     "The volume doesn't open if the page describes a file. 32 entries stand in such a page.", "stored CRC"},
    {id::fat_head_range, fault, "fat-head-range", "a file head with an impossible value",
     "A head is 0, 0xFFFE, 0xFFFF or a chunk id. The volume doesn't open.", "head"},
    {id::fat_entry_range, fault, "fat-entry-range", "a chain leaves the volume: an entry with an impossible value",
     "A chain entry is a byte count up to 64 or a chunk id. The volume doesn't open.", "entry"},
    {id::fat_free_entry, info, "fat-free-entry", "entries of free chunks with impossible values",
     "Nothing reads them before they are written anew.", "entries"},
    {id::chain_loop, fault, "chain-loop", "a chain that returns to one of its own chunks",
     "The file has no end. The volume doesn't open.", "chunks before"},
    {id::chain_cross, fault, "chain-cross", "a chain that runs into another file's",
     "Both files share the chunks from here on; a change of one of them damages the other.", "other file"},
    {id::chain_too_long, fault, "chain-too-long", "a chain of all chunks of the volume",
     "A chain that takes as many steps as there are chunks is taken for a loop. The volume doesn't open.", "chunks"},
    {id::chain_entry_zero, info, "chain-entry-zero", "a last chunk with no bytes in it",
     "Allowed, though nothing here writes it.", ""},
    {id::file_too_large, warning, "file-too-large", "a file above 0x40000 bytes",
     "It can be read, but not be written or extended.", "size"},
    {id::file_zombie, info, "file-zombie", "a zombie: a number that the next mount frees", "It reads as no file.", ""},
    {id::chunk_record, fault, "chunk-record", "a chunk in use whose page isn't complete",
     "The page's record must read 0x00. The volume doesn't open.", "record"},
    {id::chunk_crc, fault, "chunk-crc", "a chunk in use fails its checksum",
     "The 64 bytes are damaged, or belong elsewhere. Reading the file fails from here on.", "stored CRC"},
    {id::data_slots_begun, info, "data-slots-begun", "pages whose writing was begun and not finished",
     "Power went in the middle. No file names them; their slots are free again after a reclaim.", "slots"},
    {id::data_slots_dead, info, "data-slots-dead", "complete pages that no file names",
     "What deleted or replaced files, or files cut short by a power cut, leave. Their slots are free again after a "
     "reclaim.",
     "slots"},
    {id::data_record_odd, info, "data-record-odd", "page records with a value that is never written as such",
     "A cut in the middle of a record byte leaves this. No file names these pages.", "slots"},
    {id::efs_image_size, fault, "efs-image-size", "the EFS image is shorter than its geometry",
     "The table of files gives the numbers of block maps, logical blocks and spares; together they don't fit the "
     "image, "
     "or aren't ones that the format can carry. Check that image and table belong together.",
     "bytes"},
    {id::efs_file_place, fault, "efs-file-place", "the table places a file where nothing can be",
     "Its first logical block doesn't exist, or its first chunk doesn't fit the block. The file can't be used.",
     "offset"},
    {id::efs_file_beyond, info, "efs-file-beyond", "the table lets a file grow behind the last logical block",
     "Sizes up to there can be stored; a larger one is refused.", "largest size"},
    {id::efs_file_above_spares, info, "efs-file-above-spares", "a file that can grow beyond what the spares can take",
     "One write needs a spare for each block of the file. Sizes that need more are refused.", "spares needed"},
    {id::efs_file_overlap, warning, "efs-file-overlap", "two files of the table share bytes",
     "At their largest sizes one file lies over the other. Writing one can damage the other.", "other file"},
    {id::bm_none, fault, "bm-none", "no block map is in force",
     "No map block has a sound header for this geometry: the image was never formatted, was erased, or belongs "
     "elsewhere. It doesn't mount.",
     ""},
    {id::bm_foreign, fault, "bm-foreign", "a block map for another geometry or layout",
     "Its header is sound but names other counts than the table. The image doesn't mount.", ""},
    {id::bm_unsound, info, "bm-unsound", "a block map whose header fails its checksum",
     "A switch or an erase of the map that was cut leaves this. It is passed over, and erased before its next use.",
     "bytes 0 to 3"},
    {id::bm_marked, info, "bm-marked", "the marker stands over the header of the block map",
     "The map is passed over at mount.", ""},
    {id::bm_superseded, info, "bm-superseded", "an older block map that was not retired",
     "Power went between the header of the newer map and the retiring of this one. The newer one counts.", "sequence"},
    {id::bm_prepared, info, "bm-prepared", "a block map with entries and without a header",
     "Power went in a switch before its commit. The map is erased before its next use.", ""},
    {id::bm_same_sequence, warning, "bm-same-sequence", "two block maps with the same sequence number",
     "The first one is used. Sequence numbers are given once.", "sequence"},
    {id::bme_none, fault, "bme-none", "no entry of the block map in force is sound",
     "The last entry fails its checksum, and there is none before it or it fails too. The image doesn't mount.",
     "slot"},
    {id::bme_torn, info, "bme-torn", "a commit that was cut: the last entry of the block map is torn",
     "The entry before it holds, and the next commit goes to another map.", "slot"},
    {id::bme_old_unsound, info, "bme-old-unsound", "an older entry of the block map fails its checksum",
     "Only the last entry counts; nothing reads the older ones.", "slot"},
    {id::bme_behind_end, warning, "bme-behind-end", "entries behind the end of the block map",
     "The map ends at its first blank slot. What follows is never seen, and a later commit would be written over it.",
     "slot"},
    {id::bme_tables, fault, "bme-tables", "the entry in force names a data block twice, or one that doesn't exist",
     "Each data block stands exactly once in the two tables. The image doesn't mount.", "slot"},
    {id::block_header, fault, "block-header", "the header of a block in use fails its checksum",
     "Its files still read if their chunks are sound, but no file of the image can be written.", ""},
    {id::block_footer, fault, "block-footer", "a block in use fails the checksum of its data area",
     "Files whose chunks are sound still read; none in this block can be written.", "stored CRC"},
    {id::spare_header, info, "spare-header", "a spare without a sound header",
     "Power went while it was erased. The next write erases it anew and gives it the mean of the other erase counts.",
     ""},
    {id::spare_headers, fault, "spare-headers", "a further spare without a sound header",
     "One interrupted erase leaves one. With two of them no file of the image can be written.", ""},
    {id::efs_erase_spread, info, "efs-erase-spread", "erase counts lie far apart",
     "Wear levelling moves one block at each write while the difference is above the threshold.", "spread"},
    {id::efs_chunk_crc, fault, "efs-chunk-crc", "a chunk of a file fails its checksum",
     "The file can't be read from here on.", "chunk"},
    {id::efs_file_size, fault, "efs-file-size", "a stored size that its file can't have",
     "It is above the largest size in the table, or the file would run past the last logical block.", "size"},
    {id::table_unreadable, fault, "table-unreadable", "a table of the set can't be read",
     "No value can be read by its name while it is there. Take the table from the build again; an empty zonc.cfg lets "
     "every default through.",
     ""},
    {id::file_over_limit, warning, "file-over-limit", "a file larger than the file table allows",
     "No host writes such a file: either the image belongs to another file table or SKU, or pieces of several files "
     "have come together in it.",
     "size"},
};
static_assert(std::size(kinds) == static_cast<std::size_t>(finding_id::count));
static_assert([] {
    for (std::size_t i = 0; i < std::size(kinds); ++i)
        if (static_cast<std::size_t>(kinds[i].id) != i) return false;
    return true;
}());

std::string hex(std::uint32_t value)
{
    std::array<char, 12> out{};
    const int length = std::snprintf(out.data(), out.size(), "0x%X", value);
    return {out.data(), static_cast<std::size_t>(length)};
}

} // namespace

std::span<const finding_kind> finding_kinds()
{
    return kinds;
}

const finding_kind& kind_of(finding_id id)
{
    return kinds[static_cast<std::size_t>(id)];
}

const finding_kind* kind_named(std::string_view name)
{
    const auto* found = std::find_if(std::begin(kinds), std::end(kinds), [&](auto& k) { return k.name == name; });
    return found == std::end(kinds) ? nullptr : found;
}

std::string_view to_string(severity level)
{
    constexpr std::string_view names[] = {"info", "warning", "fault"};
    return names[static_cast<std::size_t>(level)];
}

std::string describe(const finding& f)
{
    const finding_kind& kind = kind_of(f.id);
    std::string out = std::string(kind.name) + ": ";
    auto place = [&out, first = true](std::string_view name, std::uint32_t number, bool as_hex = false) mutable {
        if (number == none) return;
        if (!first) out += ", ";
        first = false;
        out += std::string(name) + " " + (as_hex ? hex(number) : std::to_string(number));
    };
    const std::size_t start = out.size();
    place("file", f.file);
    place("chunk", f.chunk);
    place("page", f.page);
    place("EU", f.eu);
    place("slot", f.slot);
    place("BM", f.bm);
    place("block", f.block);
    place("at", f.address, true);
    if (out.size() > start) out += ": ";
    out += kind.meaning;
    if (!kind.value_name.empty() && f.value != none)
        out += " (" + std::string(kind.value_name) + " " + std::to_string(f.value) + " = " + hex(f.value) + ")";
    return out;
}

} // namespace yfs::inspect
