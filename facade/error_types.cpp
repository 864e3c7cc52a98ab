// The texts of the modules of ImageToolsErrorType. All but that of 0 end in a blank: a host prints the message behind.
#include "facade/facade_internal.h"

namespace yfs::facade {

// clang-format off
static constexpr error_type_row rows[] = {
    {0, "No Error"},
    {1, "[Action Processor] "},
    {2, "[Bin Actions] "},
    {3, "[Zon Converter] "},
    {4, "[Dorn Binary Gen] "},
    {5, "[Zon Actions] "},
    {6, "[Zon File I/O] "},
    {7, "[Zon Utils] "},
    {8, "[Framework C Lib] "},
    {9, "[YE Util] "},
    {10, "[Xml Processor] "},
    {11, "[Zon] "},
    {12, "[QVL Utils] "},
    {13, "[Ovra Actions] "},
    {14, "[TMZ Actions] "},
    {15, "[Luvo Controller] "},
    {16, "[GPIO Actions] "},
    {17, "[YE YFS] "},
    {18, "[Nvar Actions] "},
    {19, "[Manifest] "},
    {20, "[Manifest Actions] "},
    {21, "[Crypto Actions] "},
    {22, "[DORN Actions] "},
    {23, "[Elf Actions] "},
    {24, "[Huffman Utils] "},
    {25, "[System Resources] "},
    {26, "[SysCall Actions] "},
    {27, "[Image Utils] "},
    {28, "[Image Metadata Generator] "},
};
// clang-format on

std::span<const error_type_row> error_types()
{
    return rows;
}

} // namespace yfs::facade
