// A file table with EFST, as it comes: loads for several SKUs, lookups by path and by number.
#include "fuzz/patched.h"
#include "yfs/efs.h"
#include "yfs/vfs.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::input in(data, size);
    const bool plain = in.number(1) % 2 == 0;
    const fuzz::bytes table = plain ? in.rest() : fuzz::patched(fuzz::sound_set().ftbl, in);
    const auto length = static_cast<std::uint32_t>(table.size());
    for (const std::uint32_t sku : {7U, 0U, 0xFFFFFFFFU}) {
        load_file_table(table.data(), sku, length);
        load_autogen_data(table.data(), sku, length);
        for (const char* path : {"/home/qrd/deploy", "/home/net/name", "/home/cal", "",
                                 "/home/a/very/long/path/of/more/than/forty-eight/characters"}) {
            fileno_t number{};
            file_attributes_t attributes{};
            std::uint32_t most = 0, found = 0;
            get_fileno_by_file_name(path, &number);
            get_file_attributes_by_file_name(path, &attributes, &most);
            pathToFileNumber(path, &found);
            char name[64] = {};
            get_file_name_by_fileno(&number, name);
        }
    }
    load_file_table(fuzz::sound_set().ftbl.data(), 7,
                    static_cast<std::uint32_t>(fuzz::sound_set().ftbl.size())); // `table` ends
    return 0;
}
