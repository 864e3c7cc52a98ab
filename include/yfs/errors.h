/* What the facade reports by: severities, codes, module tags, and the texts of the codes. The table is shared by all
   components of a host tool, so that one code means the same text everywhere; the library itself raises only the codes
   that have a name below. Codes are compared as signed values. */
#pragma once

#include "yfs/export.h"

/* Severity of a report. The other values belong to the host. */
#ifdef __cplusplus
enum ErrorLevel : std::int32_t
#else
typedef int32_t ErrorLevel;
enum
#endif
{
    yfs_level_report = 4 /* every report of the library */
};

/* 0 to 410. */
#ifdef __cplusplus
enum ImageToolsErrorName : std::int32_t
#else
typedef int32_t ImageToolsErrorName;
enum
#endif
{
    yfs_error_none = 0, /* reported with an empty text */
    yfs_error_initialize = 1,
    yfs_error_file_not_found = 38,
    yfs_error_write_file = 99,
    yfs_error_buffer_parsing = 113,
    yfs_error_data_pointer = 320,
    yfs_error_out_of_memory = 321,
    yfs_error_fcs_not_initialized = 324,
    yfs_error_process_fcs_entries = 325,
    yfs_error_duplicate_file = 326,
    yfs_error_entry_in_use = 327,
    yfs_error_create_fcs_handle = 328,
    yfs_error_get_fcs_file = 329,
    yfs_error_get_fcs_attributes = 330,
    yfs_error_add_fcs_file = 331,
    yfs_error_flush_fcs = 333,
    yfs_error_invalid_fcs_file = 334,
    yfs_error_terminate_yfs = 335,
    yfs_error_get_file_size = 336,
    yfs_error_initialize_yfs = 339,
    yfs_error_initialize_efs = 340,
    yfs_error_load_velor_cfg = 341,
    yfs_error_create_current_values = 343,
    yfs_error_generate_current_values = 344,
    yfs_error_create_zon_cfg = 345,
    yfs_error_nvar_access = 346,
    yfs_error_corrupted_buffer = 398,
    yfs_error_load_ftbl = 401,
    yfs_error_last = 410
};

/* The module that a report comes from, 0 to 28. The library fills the map of their texts and never reads it. */
#ifdef __cplusplus
enum ImageToolsErrorType : std::int32_t
#else
typedef int32_t ImageToolsErrorType;
enum
#endif
{
    yfs_module_none = 0,
    yfs_module_yfs = 17,
    yfs_module_last = 28
};

/* Takes one report. `text` is the fixed text of `code`, empty for code 0; `message` what is particular to this report,
   often empty. Neither is null, and both end with the call: a callback copies what it keeps. It runs on the caller's
   thread inside the call that reports; what it calls of the facade then is refused (see yfs/facade.h). */
#ifdef __cplusplus
extern "C" {
#endif
typedef void (*YZonStatusCallback)(ErrorLevel level, ImageToolsErrorName code, const char* text, const char* message);
#ifdef __cplusplus
}

#include <map>
#include <string>

class YFS_API ZonErrors {
public:
    // Both are empty until the first init (yeYfsYzonInit calls it every time), and the host may read them as they are.
    // Two codes may have the same text, and some codes have none. All texts of modules but that of 0 end in a blank.
    static std::map<ImageToolsErrorName, std::string> s_imageToolsErrorNameStringMap;
    static std::map<ImageToolsErrorType, std::string> s_imageToolsErrorTypeStringMap;

    // Calls initStringMaps. True, always.
    static bool init();

    // Empties both maps and fills them. std::bad_alloc passes through and leaves them partly filled.
    static void initStringMaps();

    // The text of `code`, or "General Error" if the map has none.
    static std::string getErrorNameString(ImageToolsErrorName code);
};
#endif
