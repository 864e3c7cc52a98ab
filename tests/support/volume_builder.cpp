#include "tests/support/volume_builder.h"

#include "yfs/medium.h"

#include <algorithm>
#include <array>
#include <set>
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

namespace {

using namespace yfs::ftl;

// A plan that can't be laid down is a mistake of the test.
void require(bool sound)
{
    if (!sound) throw std::logic_error("volume_builder: the plan doesn't fit");
}

std::uint16_t chain_value(std::uint16_t page)
{
    const le16 key = page;
    return crc14(&key, 2);
}

page_frame_t frame_of(const std::vector<std::uint8_t>& data, std::uint16_t key, bool wrong_crc)
{
    page_frame_t frame{};
    std::copy_n(data.begin(), std::min<std::size_t>(data.size(), page_bytes), frame.data);
    const le16 key_bytes = key;
    frame.crc = low16(crc16(frame.data, page_bytes, key_bytes.byte) ^ (wrong_crc ? 0x0101U : 0U));
    return frame;
}

} // namespace

eu_plan& eu_plan::magic(std::uint32_t value, bool crc_as_stored)
{
    header_.magic = value;
    crc_as_stored_ = crc_as_stored;
    return *this;
}

log_plan& log_plan::add(eu_plan::log_slot slot)
{
    require(eu_->log_.size() < log_slots);
    eu_->log_.push_back(std::move(slot));
    return *this;
}
log_plan& log_plan::page(unsigned page)
{
    return add({eu_plan::slot_state::committed, low16(page), {}, false, {}});
}
log_plan& log_plan::pages(std::initializer_list<unsigned> list)
{
    for (const unsigned p : list) page(p);
    return *this;
}
log_plan& log_plan::page(unsigned page, const std::vector<std::uint8_t>& data)
{
    return add({eu_plan::slot_state::committed, low16(page), data, false, {}});
}
log_plan& log_plan::old(unsigned page)
{
    return add({eu_plan::slot_state::committed, low16(page), std::vector<std::uint8_t>(page_bytes), false, {}});
}
log_plan& log_plan::fill(unsigned page, unsigned up_to)
{
    while (eu_->log_.size() < up_to) old(page);
    return *this;
}
log_plan& log_plan::wrong_crc(unsigned page)
{
    return add({eu_plan::slot_state::committed, low16(page), {}, true, {}});
}
log_plan& log_plan::torn(unsigned page)
{
    return add({eu_plan::slot_state::no_commit, low16(page), {}, false, {}});
}
log_plan& log_plan::torn_record(unsigned page)
{
    return add({eu_plan::slot_state::record_only, low16(page), {}, false, {}});
}
log_plan& log_plan::frame_only(unsigned page)
{
    return add({eu_plan::slot_state::frame_only, low16(page), {}, false, {}});
}
log_plan& log_plan::skip(unsigned slots)
{
    for (unsigned i = 0; i < slots; ++i) add({eu_plan::slot_state::skipped, 0, {}, false, {}});
    return *this;
}
log_plan& log_plan::raw_record(std::uint16_t record)
{
    return add({eu_plan::slot_state::committed, 0, std::vector<std::uint8_t>(page_bytes), false, record});
}

file_plan& file_plan::in_chunks(std::vector<unsigned> indices)
{
    chunks_ = std::move(indices);
    return *this;
}
file_plan& file_plan::wrong_crc(unsigned position)
{
    wrong_crc_[position] = true;
    return *this;
}
file_plan& file_plan::record(unsigned position, std::uint8_t value)
{
    records_[position] = value;
    return *this;
}
file_plan& file_plan::last_entry(std::uint16_t value)
{
    last_entry_ = value;
    return *this;
}

volume::volume(unsigned eus, unsigned data_eus, unsigned files) : files_(files), chunks_(0), data_eus_(data_eus)
{
    require(data_eus + 2 <= eus);
    fat_size_ = low32(afs::fat_size_of(files, std::uint64_t{data_slots} * data_eus));
    volume_size_ = fat_size_ + group_bytes * data_eus;
    chunks_ = static_cast<unsigned>(afs::chunks_of(volume_size_, files));
    header_.magic = afs::volume_magic;
    header_.volume_size = volume_size_;
    header_.files = low16(files);
    eus_.resize(eus);
    for (unsigned i = 0; i < eus; ++i) {
        eu_header_t& h = eus_[i].header_;
        h.magic = eu_magic;
        h.seq = i + 1;
        h.erase_count = 1;
        h.src_eu = low16(i + 1);
        h.commit = committed;
        const unsigned first_data = eus - 1 - data_eus;
        if (i >= first_data && i + 1 < eus) make_data(i, i - first_data);
    }
    make_spare(eus - 1);
}

volume& volume::make_log(unsigned index)
{
    eus_.at(index).base_page(0).magic(eu_magic);
    return *this;
}
volume& volume::make_data(unsigned index, unsigned group)
{
    eus_.at(index).base_page(fat_size_ / page_bytes + data_slots * group).magic(eu_magic);
    return *this;
}
volume& volume::make_spare(unsigned index)
{
    eus_.at(index).base_page(0).given_up();
    return *this;
}

file_plan& volume::file(unsigned number, std::vector<std::uint8_t> content)
{
    file_plan& plan = file_[number];
    plan.content_ = std::move(content);
    return plan;
}
volume& volume::fat(unsigned entry, std::uint16_t value)
{
    fat_[entry] = value;
    return *this;
}
volume& volume::dead(unsigned index, std::uint8_t record)
{
    dead_[index] = record;
    return *this;
}
volume& volume::swap(unsigned a, unsigned b)
{
    std::swap(eus_.at(a), eus_.at(b));
    return *this;
}
volume& volume::poke(std::uint32_t address, std::uint8_t value)
{
    poke_[address] = value;
    return *this;
}

// The FAT area as it is to read, page 0 upward.
struct volume::picture {
    std::vector<std::uint8_t> fat_area;
    std::vector<std::uint8_t> page(unsigned p) const
    {
        std::vector<std::uint8_t> out(page_bytes);
        const std::size_t at = std::size_t{p} * page_bytes;
        if (at + page_bytes <= fat_area.size())
            std::copy_n(fat_area.begin() + static_cast<std::ptrdiff_t>(at), page_bytes, out.begin());
        return out;
    }
    void entry(unsigned index, std::uint16_t value)
    {
        require(afs::fat_entry_at(index) + 2 <= fat_area.size());
        store(fat_area.data() + afs::fat_entry_at(index), le16{value});
    }
};

eu_plan* volume::owner_of(std::vector<eu_plan>& eus, unsigned index) const
{
    const std::uint16_t base = low16(fat_size_ / page_bytes + data_slots * (index / data_slots));
    const auto owner = std::find_if(eus.begin(), eus.end(), [&](const eu_plan& e) {
        return e.header_.base_page == base && e.header_.magic != eu_magic_given_up;
    });
    return owner == eus.end() ? nullptr : &*owner;
}

void volume::lay_files(picture& out, std::vector<eu_plan>& eus) const
{
    std::set<unsigned> taken;
    for (const auto& [number, plan] : file_) taken.insert(plan.chunks_.begin(), plan.chunks_.end());
    for (const auto& [index, record] : dead_) taken.insert(index);

    const auto put = [&](unsigned index, eu_plan::data_slot slot) {
        if (eu_plan* owner = owner_of(eus, index)) owner->data_[index % data_slots] = std::move(slot);
    };
    unsigned next_free = 0;
    for (const auto& [number, plan] : file_) {
        const std::size_t needed = (plan.content_.size() + page_bytes - 1) / page_bytes;
        std::vector<unsigned> chain = plan.chunks_;
        require(chain.empty() || chain.size() == needed);
        while (chain.size() < needed) {
            while (taken.contains(next_free)) ++next_free;
            chain.push_back(next_free++);
        }
        std::uint16_t value = chain.empty() ? afs::empty_file : low16((plan.content_.size() - 1) % page_bytes + 1);
        if (plan.last_entry_) value = *plan.last_entry_;
        for (std::size_t i = chain.size(); i-- > 0;) {
            out.entry(chunk_id(chain[i]), value);
            value = low16(chunk_id(chain[i]));
            const auto from = plan.content_.begin() + static_cast<std::ptrdiff_t>(i * page_bytes);
            const auto part = std::min<std::size_t>(page_bytes, plan.content_.size() - i * page_bytes);
            const unsigned at = static_cast<unsigned>(i);
            put(chain[i], {plan.records_.contains(at) ? plan.records_.at(at) : data_rec_complete,
                           std::vector<std::uint8_t>(from, from + static_cast<std::ptrdiff_t>(part)),
                           plan.wrong_crc_.contains(at)});
        }
        out.entry(number, value);
    }
    for (const auto& [index, record] : dead_) put(index, {record, bytes(page_bytes, index + 1000)});
    for (const auto& [entry, value] : fat_) out.entry(entry, value);
}

void volume::append_missing_pages(const picture& contents, std::vector<eu_plan>& eus) const
{
    std::set<unsigned> missing;
    for (unsigned p = 0; p < fat_pages(); ++p) {
        const auto page = contents.page(p);
        if (std::any_of(page.begin(), page.end(), [](std::uint8_t b) { return b != 0; })) missing.insert(p);
    }
    std::vector<eu_plan*> logs;
    for (eu_plan& e : eus) {
        for (const auto& slot : e.log_) {
            if (slot.state == eu_plan::slot_state::committed && !slot.raw_record && !slot.data)
                missing.erase(slot.page);
        }
        if (e.header_.base_page == 0 && e.header_.magic != eu_magic_given_up) logs.push_back(&e);
    }
    // The log's end is the newest EU that has records; behind it come the blank ones, oldest first.
    std::sort(logs.begin(), logs.end(), [](const eu_plan* a, const eu_plan* b) {
        if (a->log_.empty() != b->log_.empty()) return b->log_.empty();
        return a->header_.seq < b->header_.seq;
    });
    auto end = std::find_if(logs.begin(), logs.end(), [](const eu_plan* e) { return e->log_.empty(); });
    if (end != logs.begin()) --end;
    for (const unsigned p : missing) {
        while (end != logs.end() && (*end)->log_.size() >= log_slots) ++end;
        require(end != logs.end());
        (*end)->log_.push_back({eu_plan::slot_state::committed, low16(p), {}, false, {}});
    }
}

void volume::lay_header(const eu_plan& plan, std::uint8_t* at) const
{
    eu_header_t header = plan.header_;
    const le32 stored = header.magic;
    if (!plan.crc_as_stored_) header.magic = eu_magic;
    header.crc = low8(crc8(&header, header_crc_bytes) ^ plan.crc_xor_);
    header.magic = stored;
    std::array<std::uint8_t, sizeof header> raw;
    store(raw.data(), header);
    std::copy_n(raw.begin(), plan.header_bytes_, at);
}

void volume::lay_log(const eu_plan& plan, const picture& contents, std::uint8_t* at) const
{
    using state = eu_plan::slot_state;
    std::uint16_t last_page = 0;
    std::uint32_t k = 0;
    for (const auto& slot : plan.log_) {
        const std::uint16_t record = slot.raw_record.value_or(low16(chain_value(last_page) ^ slot.page));
        const auto data = slot.data ? *slot.data : contents.page(slot.page);
        const bool has_record = slot.state != state::skipped && slot.state != state::frame_only;
        if (has_record) {
            store(at + log_record_at(k), le16{record});
        }
        if (slot.state != state::skipped && slot.state != state::record_only)
            store(at + log_frame_at(k), frame_of(data, slot.page, slot.wrong_crc));
        if (slot.state == state::committed) {
            at[log_commit_at(k)] = static_cast<std::uint8_t>(at[log_commit_at(k)] & log_commit_byte);
            last_page = low16(chain_value(last_page) ^ record); // as it reads back
        }
        ++k;
    }
}

void volume::lay_data(const eu_plan& plan, std::uint8_t* at)
{
    for (const auto& [k, slot] : plan.data_) {
        at[data_record_at(k)] = slot.record;
        if (!slot.data) continue;
        const std::uint16_t key = low16(plan.header_.base_page + k);
        store(at + data_frame_at(k), frame_of(*slot.data, key, slot.wrong_crc));
    }
}

std::vector<std::uint8_t> volume::image() const
{
    picture contents{std::vector<std::uint8_t>(fat_size_)};
    if (has_header_) store(contents.fat_area.data(), header_);
    std::vector<eu_plan> eus = eus_;
    lay_files(contents, eus);
    if (auto_log_) append_missing_pages(contents, eus);

    std::vector<std::uint8_t> out(std::size_t{eu_size} * eus.size(), 0xFF);
    for (unsigned i = 0; i < eus.size(); ++i) {
        std::uint8_t* at = out.data() + std::size_t{eu_at(i)};
        if (eus[i].blank_) continue;
        lay_header(eus[i], at);
        if (eus[i].header_.base_page == 0)
            lay_log(eus[i], contents, at);
        else
            lay_data(eus[i], at);
    }
    for (const auto& [address, value] : poke_) out.at(address) = value;
    return out;
}

} // namespace yfs::test
