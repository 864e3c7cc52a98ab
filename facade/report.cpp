// The one way in which the library tells its host what went wrong: four values to the status callback. A report never
// fails; without a callback it only isn't seen.
#include "facade/facade_internal.h"

#include "yfs/medium.h"

#include <cinttypes>
#include <cstdio>

namespace yfs::facade {

YZonStatusCallback s_yZonStatusCallback = nullptr;

void yeYfsLogMessage(ErrorLevel level, ImageToolsErrorName code, const char* message)
{
    if (s_yZonStatusCallback == nullptr) return;

    // A copy: the callback may fill the maps anew. Without memory for it the number has to do.
    std::string text;
    if (code != yfs_error_none) {
        try {
            text = ZonErrors::getErrorNameString(code);
        } catch (const std::bad_alloc&) {
            text.clear();
        }
    }
    s_yZonStatusCallback(level, code, text.c_str(), message);
}

void setLibError(ImageToolsErrorName code, std::int32_t status)
{
    char message[64];
    std::snprintf(message, sizeof message, " Library status code: %" PRId32, status);
    report(code, message);
}

void yeYfsAssert(const char* text)
{
    report(yfs_error_none, text);
}

std::uint32_t yeYfsMemCpy(void* dst, std::uint64_t dst_size, const void* src, std::uint64_t count)
{
    if (count == 0) return 0;
    const std::uint32_t status = ByteCopy(dst, dst_size, src, count);
    if (status != 0) {
        char message[64];
        std::snprintf(message, sizeof message, "Memory copy failed with error %" PRIu32, status);
        report(yfs_error_out_of_memory, message);
    }
    return status;
}

} // namespace yfs::facade
