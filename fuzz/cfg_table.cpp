// A configuration table as it comes: into a tree, over its files, changed, and out again.
#include "fuzz/patched.h"
#include "yfs/cfgtable.h"
#include "yfs/vfs.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::input in(data, size);
    const auto& set = fuzz::sound_set();
    load_file_table(set.ftbl.data(), 7, static_cast<std::uint32_t>(set.ftbl.size()));
    const bool plain = in.number(1) % 2 == 0;
    const fuzz::bytes table = plain ? in.rest() : fuzz::patched(set.velor, in);
    void* handle = nullptr;
    if (createHandleFromStructure(&handle, table.data(), static_cast<std::uint32_t>(table.size())) == 0) {
        char name[320] = {};
        fuzz::bytes buffer(70000);
        for (std::uint32_t status = getFirstFileInRoot(handle, name); status == 0; status = getNextFile(handle, name)) {
            std::uint32_t length = static_cast<std::uint32_t>(buffer.size());
            getFileData(handle, name, buffer.data(), &length);
            FcsFileEntry entry{};
            getFileAttributes(handle, name, &entry);
        }
        deleteFile(handle, "/home/net/name");
        std::uint32_t length = 0;
        flush(handle, nullptr, &length);
        fuzz::bytes out(length);
        flush(handle, out.data(), &length);
    }
    if (handle != nullptr) closeHandle(&handle);
    return 0;
}
