#include "tests/support/volume_builder.h"

#include "yfs/medium.h"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace yfs::test {

std::vector<std::uint8_t> bytes(std::size_t count, unsigned seed)
{
    std::vector<std::uint8_t> out(count);
    std::uint32_t state = seed * 2654435761U + 12345U;
    for (std::uint8_t& b : out) {
        state = state * 1664525U + 1013904223U;
        b = low8(state >> 24);
    }
    return out;
}

using namespace yfs::ftl;

// A plan that can't be laid down is a mistake of the test.
static void require(bool sound)
{
    if (!sound) throw std::logic_error("volume_builder: the plan doesn't fit");
}

static std::uint16_t chain_value(std::uint16_t page)
{
    const le16 key = page;
    return crc14(&key, 2);
}

static page_frame_t frame_of(std::span<const std::uint8_t> data, le16 key, bool sound)
{
    page_frame_t frame{};
    std::copy_n(data.begin(), std::min<std::size_t>(data.size(), page_bytes), frame.data);
    frame.crc = low16(crc16(frame.data, page_bytes, key.byte) ^ (sound ? 0U : 0x0101U));
    return frame;
}

// FAT page p; zeros outside the table.
static std::vector<std::uint8_t> page_in(const std::vector<std::uint8_t>& fat, unsigned p)
{
    std::vector<std::uint8_t> out(page_bytes);
    if ((p + 1) * page_bytes <= fat.size()) std::copy_n(fat.data() + p * page_bytes, page_bytes, out.begin());
    return out;
}

eu_plan& eu_plan::add(log_slot slot)
{
    require(log.size() < log_slots);
    return log.push_back(std::move(slot)), *this;
}

eu_plan& eu_plan::fill(unsigned page, unsigned up_to)
{
    while (log.size() < up_to) old(page);
    return *this;
}

volume::volume(unsigned eus, unsigned data_eus, unsigned files) : files_(files), eus_(eus)
{
    require(data_eus + 2 <= eus);
    fat_size_ = low32(afs::fat_size_of(files, std::uint64_t{data_slots} * data_eus));
    volume_size_ = fat_size_ + group_bytes * data_eus;
    header_.magic = afs::volume_magic;
    header_.volume_size = volume_size_;
    header_.files = low16(files);
    for (unsigned i = 0; i < eus; ++i) eus_[i].magic(eu_magic).seq(i + 1).erase_count(1).src(i + 1).commit(committed);
    for (unsigned group = 0; group < data_eus; ++group) make_data(eus - 1 - data_eus + group, group);
    eus_.back().given_up();
}

eu_plan& volume::make_data(unsigned index, unsigned group)
{
    return eus_.at(index).base_page(fat_pages() + data_slots * group).magic(eu_magic);
}

file_plan& volume::file(unsigned number, std::vector<std::uint8_t> content)
{
    file_[number].content = std::move(content);
    return file_[number];
}

// A page of the data area goes into the unit that owns its group; nowhere if none does.
void volume::lay_page(raw& out, unsigned index, std::uint8_t record, std::span<const std::uint8_t> data,
                      bool sound) const
{
    const unsigned slot = index % data_slots;
    const auto first_page = low16(fat_pages() + index - slot);
    const auto owner = std::ranges::find_if(eus_, [&](const eu_plan& e) {
        return e.header.base_page == first_page && e.header.magic != eu_magic_given_up;
    });
    if (owner == eus_.end() || owner->header_bytes == 0) return;
    std::uint8_t* at = out.data() + eu_at(static_cast<unsigned>(owner - eus_.begin()));
    at[data_record_at(slot)] = record;
    store(at + data_frame_at(slot), frame_of(data, low16(first_page + slot), sound));
}

void volume::lay_files(raw& out, raw& fat) const
{
    const auto entry = [&](unsigned index, std::uint16_t value) {
        require(afs::fat_entry_at(index) + 2 <= fat.size());
        store(fat.data() + afs::fat_entry_at(index), le16{value});
    };
    std::set<unsigned> taken;
    for (const auto& [number, plan] : file_) taken.insert(plan.chunks.begin(), plan.chunks.end());
    for (const auto& [index, record] : dead_) taken.insert(index);

    unsigned next_free = 0;
    for (const auto& [number, plan] : file_) {
        const std::span<const std::uint8_t> content = plan.content;
        const std::size_t needed = (content.size() + page_bytes - 1) / page_bytes;
        std::vector<unsigned> chain = plan.chunks;
        require(chain.empty() || chain.size() == needed);
        while (chain.size() < needed) {
            while (taken.contains(next_free)) ++next_free;
            chain.push_back(next_free++);
        }
        std::uint16_t value =
            plan.last.value_or(chain.empty() ? afs::empty_file : low16((content.size() - 1) % page_bytes + 1));
        for (auto i = static_cast<unsigned>(chain.size()); i-- > 0;) {
            entry(chunk_id(chain[i]), value);
            value = low16(chunk_id(chain[i]));
            lay_page(out, chain[i], plan.records.contains(i) ? plan.records.at(i) : data_rec_complete,
                     content.subspan(std::size_t{i} * page_bytes), !plan.wrong_crcs.contains(i));
        }
        entry(number, value);
    }
    for (const auto& [index, record] : dead_) lay_page(out, index, record, bytes(page_bytes, index + 1000), true);
    for (const auto& [index, value] : fat_) entry(index, value);
}

void volume::append_missing_pages(const raw& fat, std::vector<eu_plan>& eus) const
{
    std::set<unsigned> missing;
    for (unsigned p = 0; p < fat_pages(); ++p)
        if (page_in(fat, p) != raw(page_bytes)) missing.insert(p);
    std::vector<eu_plan*> logs;
    for (eu_plan& e : eus) {
        for (const auto& slot : e.log)
            if (slot.commit && !slot.raw_record && !slot.data) missing.erase(slot.page);
        if (e.header.base_page == 0 && e.header.magic != eu_magic_given_up) logs.push_back(&e);
    }
    // The log's end is the newest EU that has records; behind it come the blank ones, oldest first.
    std::ranges::sort(logs, {},
                      [](const eu_plan* e) { return std::pair<bool, unsigned>(e->log.empty(), e->header.seq); });
    auto end = std::ranges::find_if(logs, [](const eu_plan* e) { return e->log.empty(); });
    if (end != logs.begin()) --end;
    for (const unsigned p : missing) {
        while (end != logs.end() && (*end)->log.size() >= log_slots) ++end;
        require(end != logs.end());
        (*end)->page(p);
    }
}

static void lay_unit(const eu_plan& plan, const std::vector<std::uint8_t>& fat, std::uint8_t* at)
{
    eu_header_t header = plan.header;
    if (!plan.own_crc) header.magic = eu_magic;
    header.crc = low8(crc8(&header, header_crc_bytes) ^ plan.crc_change);
    header.magic = plan.header.magic;
    std::array<std::uint8_t, sizeof header> bytes;
    store(bytes.data(), header);
    std::copy_n(bytes.begin(), plan.header_bytes, at);

    std::uint16_t last_page = 0;
    for (std::uint32_t k = 0; k < plan.log.size(); ++k) {
        const auto& slot = plan.log[k];
        const std::uint16_t record = slot.raw_record.value_or(low16(chain_value(last_page) ^ slot.page));
        if (slot.record) store(at + log_record_at(k), le16{record});
        if (slot.frame)
            store(at + log_frame_at(k), frame_of(slot.data.value_or(page_in(fat, slot.page)), slot.page, slot.sound));
        if (!slot.commit) continue;
        at[log_commit_at(k)] &= log_commit_byte;
        last_page = low16(chain_value(last_page) ^ record); // as it reads back
    }
}

std::vector<std::uint8_t> volume::image() const
{
    raw out(std::size_t{eu_size} * eus_.size(), 0xFF), fat(fat_size_);
    if (has_header_) store(fat.data(), header_);
    lay_files(out, fat);
    std::vector<eu_plan> eus = eus_;
    if (auto_log_) append_missing_pages(fat, eus);
    for (unsigned i = 0; i < eus.size(); ++i)
        if (eus[i].header_bytes != 0) lay_unit(eus[i], fat, out.data() + eu_at(i));
    for (const auto& [address, value] : poke_) out.at(address) = value;
    return out;
}

} // namespace yfs::test
