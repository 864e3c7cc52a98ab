// ZonErrors: the two maps from numbers to texts, which the host reads as data too.
#include "facade/facade_internal.h"

std::map<ImageToolsErrorName, std::string> ZonErrors::s_imageToolsErrorNameStringMap;
std::map<ImageToolsErrorType, std::string> ZonErrors::s_imageToolsErrorTypeStringMap;

bool ZonErrors::init()
{
    initStringMaps();
    return true;
}

void ZonErrors::initStringMaps()
{
    s_imageToolsErrorNameStringMap.clear();
    s_imageToolsErrorTypeStringMap.clear();
    for (const auto& row : yfs::facade::error_names())
        s_imageToolsErrorNameStringMap[static_cast<ImageToolsErrorName>(row.code)] = row.text;
    for (const auto& row : yfs::facade::error_types())
        s_imageToolsErrorTypeStringMap[static_cast<ImageToolsErrorType>(row.type)] = row.text;
}

std::string ZonErrors::getErrorNameString(ImageToolsErrorName code)
{
    const auto found = s_imageToolsErrorNameStringMap.find(code);
    return found == s_imageToolsErrorNameStringMap.end() ? "General Error" : found->second;
}
