// dump: parts of images and tables, each field beside its bytes.
#include "inspect/efs_picture.h"
#include "inspect/picture.h"
#include "tool/error.h"
#include "tool/output.h"
#include "tool/tables.h"
#include "tool/verbs.h"
#include "yfs/cfgtable.h"
#include "yfs/vfs.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>

namespace yfs::tool {

namespace {

struct dumped_field {
    std::uint64_t address;
    std::span<const std::uint8_t> data;
    std::string name, meaning;
};

// Fields of one image or table, in order. What isn't inside it isn't listed.
class field_list {
public:
    explicit field_list(std::span<const std::uint8_t> image) : image_(image) {}

    void add(std::uint64_t address, std::uint64_t length, std::string name, std::string meaning = {})
    {
        if (address > image_.size() || length > image_.size() - address) return;
        fields_.push_back({address, image_.subspan(address, length), std::move(name), std::move(meaning)});
    }
    std::span<const std::uint8_t> image() const { return image_; }
    const std::vector<dumped_field>& fields() const { return fields_; }

private:
    std::span<const std::uint8_t> image_;
    std::vector<dumped_field> fields_;
};

std::string text_of(const field_list& list)
{
    constexpr std::size_t width = 16;
    std::string text;
    for (const auto& [address, data, name, meaning] : list.fields()) {
        for (std::size_t at = 0; at == 0 || at < data.size(); at += width) {
            const auto row = data.subspan(at, std::min(width, data.size() - at));
            std::string hex;
            for (const std::uint8_t byte : row) hex += fmt::format("{:02x} ", byte);
            text += fmt::format("0x{:06x}  {:<48} {}", address + at, hex, at == 0 ? name : "");
            if (at == 0 && !meaning.empty()) text += ": " + meaning;
            while (text.ends_with(' ')) text.pop_back();
            text += '\n';
        }
    }
    return text;
}

json document_of(const std::string& name, const field_list& list)
{
    json::array fields;
    for (const auto& [address, data, field, meaning] : list.fields())
        fields.emplace_back(
            json::object{{"address", address}, {"hex", to_hex(data)}, {"field", field}, {"meaning", meaning}});
    return json::object{{"schema", "yfs.dump/1"}, {"path", name}, {"fields", std::move(fields)}};
}

// ---- An erase unit ----

std::string magic_meaning(std::uint32_t magic)
{
    switch (magic) {
    case ftl::eu_magic:
        return "a unit in use";
    case ftl::eu_magic_given_up:
        return "given up: the spare";
    case UINT32_MAX:
        return "blank";
    default:
        return magic == ftl::eu_magic_alt || magic == ftl::eu_magic_old ? "an older mark of a unit in use" : "no mark";
    }
}

void add_unit_header(field_list& to, std::uint64_t at, const inspect::erase_unit& unit)
{
    const ftl::eu_header_t& h = unit.header;
    to.add(at, 4, "magic", magic_meaning(h.magic));
    to.add(at + offsetof(ftl::eu_header_t, seq), 4, "seq", fmt::format("{}", std::uint32_t{h.seq}));
    to.add(at + offsetof(ftl::eu_header_t, erase_count), 4, "erase_count",
           fmt::format("{}", std::uint32_t{h.erase_count}));
    to.add(at + offsetof(ftl::eu_header_t, src_eu), 2, "src_eu",
           fmt::format("took the place of EU {}", std::uint16_t{h.src_eu}));
    to.add(at + offsetof(ftl::eu_header_t, base_page), 2, "base_page",
           h.base_page == 0 ? std::string("a log unit")
                            : fmt::format("data, pages from {}", std::uint16_t{h.base_page}));
    to.add(at + offsetof(ftl::eu_header_t, crc), 1, "crc", unit.valid ? "matches" : "the header isn't valid");
    to.add(at + offsetof(ftl::eu_header_t, commit), 1, "commit", h.commit == 0 ? "in force" : "not committed");
}

std::string slot_meaning(const inspect::slot_view& slot)
{
    constexpr std::string_view names[] = {"blank", "live", "stale", "torn", "lost", "unreachable"};
    std::string text(names[static_cast<std::size_t>(slot.state)]);
    if (slot.page != inspect::none) text += fmt::format(", page {}", slot.page);
    return text;
}

void dump_unit(field_list& to, const inspect::picture& picture, std::uint32_t eu)
{
    const std::uint64_t at = std::uint64_t{eu} * ftl::eu_size;
    const inspect::erase_unit& unit = picture.eus[eu];
    const bool log = unit.role == inspect::eu_role::log;
    add_unit_header(to, at, unit);
    for (std::uint32_t slot = 0; slot < unit.slots.size(); ++slot)
        to.add(at + (log ? ftl::log_record_at(slot) : ftl::data_record_at(slot)), log ? 2 : 1,
               fmt::format("rec[{}]", slot), slot_meaning(unit.slots[slot]));
    for (std::uint32_t slot = 0; slot < unit.slots.size(); ++slot) {
        if (unit.slots[slot].state == inspect::slot_state::blank) continue;
        const std::uint64_t frame = at + (log ? ftl::log_frame_at(slot) : ftl::data_frame_at(slot));
        to.add(frame, ftl::page_bytes, fmt::format("frame[{}]", slot), slot_meaning(unit.slots[slot]));
        to.add(frame + ftl::page_bytes, 2, fmt::format("frame[{}].crc", slot));
    }
    if (unit.slots.empty())
        to.add(at + sizeof(ftl::eu_header_t), ftl::eu_size - sizeof(ftl::eu_header_t), "rest", "not in use");
}

// ---- EFS ----

void dump_map(field_list& to, const inspect::efs_picture& picture, std::uint32_t bm)
{
    const std::uint64_t at = std::uint64_t{bm} * efs::block_bytes;
    const inspect::bm_view& view = picture.bms[bm];
    const efs::geometry& geo = picture.plan.geo;
    to.add(at, 2, "version", fmt::format("{}", std::uint16_t{view.header.version}));
    to.add(at + 2, 2, "sku_id", fmt::format("{}", std::uint16_t{view.header.sku_id}));
    to.add(at + 4, 4, "sequence",
           fmt::format("{}{}", std::uint32_t{view.header.sequence}, bm == picture.current_bm ? ", in force" : ""));
    to.add(at + 8, 1, "bm_num", fmt::format("{}", view.header.bm_num));
    to.add(at + 9, 1, "valid_block_num", fmt::format("{}", view.header.valid_block_num));
    to.add(at + 10, 1, "non_valid_block_num", fmt::format("{}", view.header.non_valid_block_num));
    to.add(at + 11, 1, "layout_id", fmt::format("{}", view.header.layout_id));
    to.add(at + 12, 4, "crc");
    for (std::uint32_t slot = 0; slot < view.slots_written; ++slot) {
        const std::uint64_t entry = at + efs::first_slot_at + std::uint64_t{slot} * geo.bme_bytes();
        const bool now = bm == picture.current_bm && slot == picture.current_slot;
        to.add(entry, geo.valid_block_num, fmt::format("entry[{}].valid", slot), now ? "in force" : "");
        to.add(entry + geo.valid_block_num, geo.non_valid_block_num, fmt::format("entry[{}].spares", slot));
        to.add(entry + geo.data_blocks(), sizeof(efs::bme_tail_t), fmt::format("entry[{}].tail", slot),
               "reserved, crc");
    }
}

void dump_block(field_list& to, const inspect::efs_picture& picture, std::uint32_t block)
{
    const std::uint64_t at = picture.plan.geo.data_block_at(block);
    const inspect::block_view& view = picture.blocks[block];
    to.add(at, 4, "erase_count",
           view.header_sound ? fmt::format("{}", view.erase_count) : std::string("the header isn't sound"));
    to.add(at + 4, 8, "reserved");
    to.add(at + 12, 4, "crc");
    to.add(at + offsetof(efs::data_block_t, data_area), efs::data_area_bytes, "data_area",
           view.logical == inspect::none ? std::string("a spare") : fmt::format("logical block {}", view.logical));
    to.add(at + offsetof(efs::data_block_t, footer), 4, "footer", "crc of the data area");
}

// ---- Tables ----

void dump_cfg(field_list& to, const session& names, const std::string& name)
{
    const cfg_file table = read_cfg_file(to.image(), name);
    std::uint64_t at = 0;
    if (table.in_partition) {
        to.add(0, 8, "header", "firmware's own");
        to.add(8, 4, "table_length", fmt::format("{}", std::uint32_t{load<le32>(to.image().data() + 8)}));
        to.add(12, 4, "header", "firmware's own");
        at = 16;
    }
    to.add(at, 4, "count", count_of(table.records.size(), "record"));
    at += sizeof(le32);
    for (std::size_t i = 0; i < table.records.size(); ++i, at += sizeof(_cfg_file_entry_t)) {
        const cfg_record& record = table.records[i];
        const file_row* row = names.table.by_fileno(record.fileno);
        to.add(at, 4, fmt::format("record[{}].fileno", i),
               row == nullptr ? std::string("unknown to the file table") : printable(row->path));
        to.add(
            at + offsetof(_cfg_file_entry_t, offset), 4, fmt::format("record[{}].offset", i),
            fmt::format("{}", std::uint32_t{load<le32>(to.image().data() + at + offsetof(_cfg_file_entry_t, offset))}));
        to.add(at + offsetof(_cfg_file_entry_t, size), 2, fmt::format("record[{}].size", i),
               fmt::format("{}", record.size));
        to.add(at + offsetof(_cfg_file_entry_t, flags), 2, fmt::format("record[{}].flags", i),
               record.available ? "available" : "not available");
    }
    for (std::size_t i = 0; i < table.records.size(); ++i) {
        const auto payload = table.records[i].payload;
        if (payload.empty()) continue;
        constexpr std::size_t width = 40;
        to.add(static_cast<std::uint64_t>(payload.data() - to.image().data()), payload.size(),
               fmt::format("payload[{}]", i), preview(payload, width));
    }
}

void dump_ftbl(field_list& to, const std::string& name)
{
    const bytes copy(to.image().begin(), to.image().end());
    const std::vector<std::uint32_t> skus = skus_in(copy, name);
    to.add(0, 4, "magic", "FTBL");
    to.add(4, 8, "header", "not read");
    to.add(12, 4, "sku_count", fmt::format("{}", skus.size()));
    for (std::size_t sku = 0; sku < skus.size(); ++sku) {
        const std::uint64_t at = sizeof(ftbl_header_t) + sku * sizeof(ftbl_sku_entry_t);
        const auto entry = load<ftbl_sku_entry_t>(copy.data() + at);
        to.add(at, 4, fmt::format("sku[{}].sku", sku), fmt::format("{}", std::uint32_t{entry.sku}));
        to.add(at + 4, 4, fmt::format("sku[{}].table_offset", sku),
               fmt::format("0x{:x}", std::uint32_t{entry.table_offset}));
        to.add(at + 8, 4, fmt::format("sku[{}].num_files", sku), fmt::format("{}", std::uint32_t{entry.num_files}));
    }
    for (std::size_t sku = 0; sku < skus.size(); ++sku) {
        const auto entry = load<ftbl_sku_entry_t>(copy.data() + sizeof(ftbl_header_t) + sku * sizeof(ftbl_sku_entry_t));
        for (std::uint32_t i = 0; i < entry.num_files; ++i) {
            const std::uint64_t at = std::uint64_t{entry.table_offset} + std::uint64_t{i} * sizeof(ftbl_file_entry_t);
            if (at + sizeof(ftbl_file_entry_t) > copy.size()) break;
            const auto file = load<ftbl_file_entry_t>(copy.data() + at);
            const std::string prefix = fmt::format("sku[{}].file[{}].", sku, i);
            to.add(at, sizeof file.name, prefix + "name",
                   printable({file.name, ::strnlen(file.name, sizeof file.name)}));
            to.add(at + offsetof(ftbl_file_entry_t, fileno), 4, prefix + "fileno",
                   fmt::format("0x{:x}", std::uint32_t{file.fileno}));
            to.add(at + offsetof(ftbl_file_entry_t, attributes), 2, prefix + "attributes",
                   fmt::format("{:04x}", std::uint16_t{file.attributes}));
            to.add(at + offsetof(ftbl_file_entry_t, file_index), 2, prefix + "file_index",
                   fmt::format("{}", std::uint16_t{file.file_index}));
            to.add(at + offsetof(ftbl_file_entry_t, fs_selector), 1, prefix + "fs_selector",
                   fmt::format("{}", file.fs_selector));
            to.add(at + offsetof(ftbl_file_entry_t, maxSize), 4, prefix + "maxSize", bytes_text(file.maxSize));
        }
    }
}

exit_status show(const options& given, const std::string& name, const field_list& list)
{
    print(given.json ? document_of(name, list).dump() : text_of(list));
    return exit_status::done;
}

const working_copy& image_for(const session& set, image_kind kind)
{
    if (const auto& image = set.image(kind)) return *image;
    throw failure(fault::no_volume, fmt::format("{} names no image of {}", set.name(), to_string(kind)),
                  "name one with -i IMAGE");
}

[[noreturn]] void refuse_number(const working_copy& image, std::uint32_t number, std::size_t count,
                                std::string_view thing)
{
    throw failure(fault::usage, fmt::format("{} has no {} {}: it has {}, counted from 0", image.name(), thing, number,
                                            count_of(count, thing)));
}

source tables_of(const options& given)
{
    source from = given;
    from.tables_only = true;
    return from;
}

} // namespace

exit_status dump_erase_unit(const options& given)
{
    const session set(given);
    const working_copy& image = image_for(set, image_kind::afs);
    const inspect::picture picture = inspect::inspect_image(image.before);
    if (given.number >= picture.eus.size()) refuse_number(image, given.number, picture.eus.size(), "erase unit");
    field_list list(image.before);
    dump_unit(list, picture, given.number);
    return show(given, image.name(), list);
}

exit_status dump_block_map(const options& given)
{
    const session set(given);
    const working_copy& image = image_for(set, image_kind::efs);
    const inspect::efs_picture picture = inspect::inspect_efs(image.before, plan_for(image.ref, image.before));
    if (given.number >= picture.bms.size()) refuse_number(image, given.number, picture.bms.size(), "block map");
    field_list list(image.before);
    dump_map(list, picture, given.number);
    return show(given, image.name(), list);
}

exit_status dump_data_block(const options& given)
{
    const session set(given);
    const working_copy& image = image_for(set, image_kind::efs);
    const inspect::efs_picture picture = inspect::inspect_efs(image.before, plan_for(image.ref, image.before));
    if (given.number >= picture.blocks.size()) refuse_number(image, given.number, picture.blocks.size(), "data block");
    field_list list(image.before);
    dump_block(list, picture, given.number);
    return show(given, image.name(), list);
}

exit_status dump_cfg_table(const options& given)
{
    const session names(tables_of(given));
    if (given.inputs.empty() && names.velor.name().empty()) names.refuse_bare("'dump cfg' without a FILE");
    const working_copy table =
        given.inputs.empty() ? (names.zonc ? *names.zonc : names.velor) : read_copy(parse_image(given.inputs.front()));
    field_list list(table.before);
    dump_cfg(list, names, table.name());
    return show(given, table.name(), list);
}

exit_status dump_file_table(const options& given)
{
    const working_copy table =
        given.inputs.empty() ? session(tables_of(given)).ftbl : read_copy(parse_image(given.inputs.front()));
    if (table.name().empty()) throw failure(fault::set_missing, "no file table: neither FILE nor a set");
    field_list list(table.before);
    dump_ftbl(list, table.name());
    return show(given, table.name(), list);
}

} // namespace yfs::tool
