// The verbs about the tables by themselves: cfg ls, cfg unpack, cfg pack, ftbl ls.
#include "tool/files.h"
#include "tool/output.h"
#include "tool/tables.h"
#include "tool/value_text.h"
#include "tool/verbs.h"

#include <fmt/format.h>

#include <utility>

namespace yfs::tool {

namespace {

constexpr std::string_view table_schema = "yfs.cfg-table/1";

// The tables that were named, or those of the set; beside them the file table, if there is one, for the names.
struct cfg_tables {
    explicit cfg_tables(const options& given) : names(tables_of(given))
    {
        for (const std::string& file : given.inputs) files.push_back(read_copy(parse_image(file)));
        if (!files.empty()) return;
        if (names.velor.name().empty()) names.refuse_bare("'cfg ls' without a FILE");
        files.push_back(names.velor);
        if (names.zonc) files.push_back(*names.zonc);
    }

    const std::string* path_of(std::uint32_t fileno) const
    {
        const file_row* row = names.table.by_fileno(fileno);
        return row == nullptr ? nullptr : &row->path;
    }

    session names;
    std::vector<working_copy> files;

private:
    static source tables_of(const options& given)
    {
        source from = given;
        from.tables_only = true;
        return from;
    }
};

json document_of(const cfg_tables& tables, const cfg_file& table)
{
    json::array records;
    for (const cfg_record& record : table.records) {
        json::object one = {{"fileno", record.fileno}, {"flags", std::uint32_t{record.flags}}};
        if (const std::string* path = tables.path_of(record.fileno)) one.emplace_back("path", printable(*path));
        one.emplace_back("value", value_text(record.payload));
        records.emplace_back(std::move(one));
    }
    json::object out = {{"schema", table_schema}};
    if (table.in_partition) out.emplace_back("partition_header", to_hex(table.header));
    out.emplace_back("records", std::move(records));
    return out;
}

std::string text_of(const cfg_tables& tables, const cfg_file& table)
{
    using enum text_table::align;
    text_table out({right, right, right, left, left});
    out.row({"fileno", "flags", "size", "path", "value"});
    for (const cfg_record& record : table.records) {
        constexpr std::size_t width = 40;
        const std::string* path = tables.path_of(record.fileno);
        out.row({fmt::format("0x{:x}", record.fileno), fmt::format("{:04x}", record.flags),
                 fmt::format("{}", record.size), path == nullptr ? "-" : printable(*path),
                 record.available ? preview(record.payload, width) : "not available"});
    }
    return out.text();
}

// ---- From a document back to a table ----

[[noreturn]] void refuse(const std::string& name, const std::string& why)
{
    throw failure(fault::usage, fmt::format("{}: {}", name, why), "'yfs cfg unpack' writes what 'yfs cfg pack' takes");
}

const json& member(const json::object& members, std::string_view key, const std::string& name)
{
    for (const auto& [own, value] : members) {
        if (own == key) return value;
    }
    refuse(name, fmt::format("\"{}\" is missing", key));
}

std::uint32_t number(const json::object& members, std::string_view key, std::uint32_t most, const std::string& name)
{
    const std::uint64_t* value = member(members, key, name).as_unsigned();
    if (value == nullptr || *value > most) refuse(name, fmt::format("\"{}\" is a number from 0 to {}", key, most));
    return static_cast<std::uint32_t>(*value);
}

const std::string& text(const json::object& members, std::string_view key, const std::string& name)
{
    const std::string* value = member(members, key, name).as_string();
    if (value == nullptr) refuse(name, fmt::format("\"{}\" is a text", key));
    return *value;
}

bytes packed(const json::object& document, const std::string& name)
{
    const auto* list = std::get_if<json::array>(&member(document, "records", name).value());
    if (text(document, "schema", name) != table_schema || list == nullptr) refuse(name, "it is no unpacked cfg table");
    std::vector<bytes> payloads; // reserved, since the records point into it
    payloads.reserve(list->size());
    std::vector<cfg_record> records;
    for (const json& item : *list) {
        const json::object* members = item.as_object();
        if (members == nullptr) refuse(name, "a record isn't an object");
        cfg_record record;
        record.fileno = number(*members, "fileno", UINT32_MAX, name);
        record.flags = static_cast<std::uint16_t>(number(*members, "flags", UINT16_MAX, name));
        record.payload = payloads.emplace_back(
            parse_value(text(*members, "value", name), std::filesystem::path(name).parent_path()));
        records.push_back(record);
    }
    bytes table = make_cfg_table(records);
    for (const auto& [key, value] : document) {
        if (key != "partition_header") continue;
        const auto header = value.as_string() == nullptr ? std::nullopt : parse_hex(*value.as_string());
        if (!header || header->size() != 16) refuse(name, "\"partition_header\" is 16 bytes in hex");
        return make_partition(*header, table);
    }
    return table;
}

} // namespace

exit_status list_records(const options& given)
{
    const cfg_tables tables(given);
    std::string out;
    json::array documents;
    for (const working_copy& file : tables.files) {
        const cfg_file table = read_cfg_file(file.before, file.name());
        out +=
            fmt::format("{}{}: {}\n", out.empty() ? "" : "\n", file.name(), count_of(table.records.size(), "record"));
        out += text_of(tables, table);
        json::object one = {{"path", file.name()}};
        const json document = document_of(tables, table);
        for (const auto& [key, value] : *document.as_object()) {
            if (key != "schema") one.emplace_back(key, value);
        }
        documents.emplace_back(std::move(one));
    }
    print(given.json ? json(json::object{{"schema", "yfs.cfg-ls/1"}, {"tables", std::move(documents)}}).dump() : out);
    return exit_status::done;
}

exit_status unpack_table(const options& given)
{
    const cfg_tables tables(given);
    const working_copy& file = tables.files.front();
    print(document_of(tables, read_cfg_file(file.before, file.name())).dump());
    return exit_status::done;
}

exit_status pack_table(const options& given)
{
    const bytes text = read_file(given.source_file);
    json document;
    try {
        document = json::parse({reinterpret_cast<const char*>(text.data()), text.size()});
    } catch (const json_error& error) {
        refuse(given.source_file, printable(error.what()));
    }
    if (document.as_object() == nullptr) refuse(given.source_file, "it isn't a JSON object");
    const bytes table = packed(*document.as_object(), given.source_file);
    if (given.change.output.empty() || given.change.output == "-") {
        print_contents(table, given.force);
        return exit_status::done;
    }
    save_list list;
    list.add(given.change.output, table);
    list.commit();
    note(fmt::format("{}: {}", given.change.output, bytes_text(table.size())));
    return exit_status::done;
}

exit_status list_file_table(const options& given)
{
    source from = given;
    from.tables_only = true;
    const std::string named = given.inputs.empty() ? std::string() : given.inputs.front();
    set_file set = named.empty() ? session(from).set : set_file{};
    if (!named.empty()) set.ftbl = named;
    if (set.ftbl.empty()) throw failure(fault::set_missing, "no file table: neither FILE nor a set");
    const std::string name = set.locate(set.ftbl).string();
    const bytes ftbl = read_file(name);
    const std::vector<std::uint32_t> skus = skus_in(ftbl, name);

    using enum text_table::align;
    text_table out({right, left, right, right, right, left});
    out.row({"sku", "place", "fileno", "limit", "attr", "path"});
    json::array list;
    for (const std::uint32_t sku : skus) {
        if (given.sku && *given.sku != sku) continue;
        set.sku = sku;
        const file_table table(set, ftbl);
        for (const file_row& row : table.rows()) {
            out.row({fmt::format("{}", sku), row.place(), fmt::format("0x{:x}", row.fileno),
                     fmt::format("{}", row.limit), fmt::format("{:04x}", row.attributes), printable(row.path)});
            list.emplace_back(json::object{{"sku", sku},
                                           {"path", printable(row.path)},
                                           {"place", row.place()},
                                           {"fileno", row.fileno},
                                           {"limit", row.limit},
                                           {"attributes", std::uint32_t{row.attributes}}});
        }
    }
    print(given.json ? json(json::object{{"schema", "yfs.ftbl-ls/1"}, {"files", std::move(list)}}).dump() : out.text());
    return exit_status::done;
}

} // namespace yfs::tool
