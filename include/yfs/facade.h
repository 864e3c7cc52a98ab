/* The facade: what a host calls to edit the configuration values (NVARs) of a firmware image.

   A run: yeYfsYzonInit with all buffers; yeYfsNvarGet and yeYfsNvarResize, the host writing through the pointers that
   they hand out; yeYfsNvarTerm(1), which writes the values into the volume and builds the new zonc.cfg;
   yeYfsGetBuildZonCfgFcsBuffer to fetch that; yeYfsNvarTerm(0). There is one run at a time in a process, on one thread.

   8-bit results are 1 for success and 0 for failure; the reasons go to the status callback (yfs/errors.h), the specific
   one first, then a closing one where the call names it. Without a callback everything behaves the same, silently.
   No exception leaves these functions but one that the callback itself throws: out of memory is report 321 and 0.

   A call made by the callback, thus inside another call, does nothing and answers 0; only the queries that look at no
   table and no volume (yeYfsIsInitialized, yeFcsIsInitialized, yeYfsGetEfsSize, yeYfsGetFcsFileNameMapping) answer as
   ever. */
#pragma once

#include "yfs/cfgtable.h"
#include "yfs/errors.h"

YFS_BEGIN_C

/* A buffer of the host. Size 0: not given, whatever the pointer. */
typedef struct YFS_PACKED _commonYZonTable {
    void* data;
    uint32_t size; /* bytes */
} _commonYZonTable;

/* All that a run works on; fields back to back. */
typedef struct YFS_PACKED YZonInitParams {
    _commonYZonTable velorCfg; /* Velor.cfg: the table of defaults. Mandatory; copied */
    _commonYZonTable zonCfg;   /* the zonc.cfg partition: 16 bytes of header, the table's length at offset 8; copied */
    _commonYZonTable yfs;      /* the YFS partition: an AFS volume. Edited in place until the run ends */
    _commonYZonTable ftbl;     /* ftbl.bin: the file table. Mandatory; copied */
    uint32_t afsSkuId;         /* which section of the file table holds */
    _commonYZonTable efs;      /* the EFS partition. Edited in place; at least yeYfsGetEfsSize() bytes */
} YZonInitParams;

/* Starts a run: loads the tables, generates the current values, mounts the volumes that are given, and, if the VFS is
   deployed (yeYfsIsVfsDeployed), takes the values over from there. A run that wasn't ended is ended first, its tables
   released, nothing written. `callback` may be null; it stays until the next yeYfsYzonInit.
   Null `params` count as nothing given. Failures, in the order of the tests:
     341  velorCfg not given                        339  a size without data, "Invalid table NAME. ..."
     401  ftbl not given                            321  out of memory, at any place
     401 or 328, 329, 330 + 325   Velor.cfg or file table refused
     113, 339                     zonc.cfg partition shorter than its header, or than the length in it
     328, 329, 330 + 325          zonc.cfg refused
     344  no current values                         1 + 339  YFS not mounted; "dfs_init failed\n" goes to stdout
     340  EFS not mounted, or shorter than the file table says; its bytes are untouched
     339  the values could not be taken over
   Up to 344 nothing is left of the run. After the others the tables stand, yeFcsIsInitialized() is 1, and the run goes
   on without a VFS: the NVAR calls and yeYfsNvarTerm work. */
YFS_API uint8_t yeYfsYzonInit(const YZonInitParams* params, YZonStatusCallback callback);

/* Builds a new zonc.cfg of all available current values and, in a deployed VFS, writes them into the volumes, all but
   those with attribute bit 0. Every pointer that the library handed out ends.
   keepTables not 0: the new table takes the place of zonc.cfg, the current values are generated anew (a value that
   zonc.cfg didn't hold as available can come back as its default), and the run goes on.
   keepTables 0: all tables are freed, YFS is shut down, the run is over. EFS stays mounted as it is.
   324: no run. 343: the current values could not be generated; the tables stay. 335: shutting down failed; the tables
   stay. Any failure before ends the run whatever keepTables says, with all tables freed, and reports 345 last: 321,
   328, 331 (a value above its maxSize, or above 65,523 bytes; nothing has been written then), 99, 336, 333. Values
   already written into the volumes stay written. */
YFS_API uint8_t yeYfsNvarTerm(uint8_t keepTables);

/* The NVAR calls. `path` is the file's path, with or without "/home/" in front; `table` one of FcsFileName. They read
   and write the tables alone, never the volumes. */

/* 1 if `table` has an entry of this path, available or not. Silent if not. 398: null path; 334: no such table. */
YFS_API uint8_t yeyfsCheckNvarExists(const char* path, FcsFileName table);

/* Hands out a value: *dataOut, *sizeOut bytes, the entry's own buffer and not a copy; null for 0 bytes. The host may
   write through it; only FCS_CURRENT_VALUES ever counts. Valid until a resize of this file, yeYfsNvarTerm, or
   yeYfsYzonInit. *modifiable (may be null): 0 if the rebuild would not write this file back (attribute bit 0 in a
   deployed VFS), else 1. *maxSizeOut (may be null): the largest size that the rebuild accepts.
   398: a null pointer; 38: no such file (after 334 if `table` is none); 320: a size without data; 346: not available.
   On failure *dataOut and *sizeOut are null and 0, the other two unchanged. */
YFS_API uint8_t yeYfsNvarGet(const char* path, void** dataOut, uint32_t* sizeOut, FcsFileName table,
                             uint8_t* modifiable, uint32_t* maxSizeOut);

/* Makes a value of FCS_CURRENT_VALUES `newSize` bytes long; *dataOut becomes its buffer, null for 0 bytes. Bytes up to
   the smaller size stay; the host fills what comes behind them. maxSize is not tested here but at the rebuild.
   398: null pointer; 38: no such file; 346: not available; 321: no memory. On failure the value and *dataOut are
   unchanged. */
YFS_API uint8_t yeYfsNvarResize(const char* path, void** dataOut, uint32_t newSize);

/* Hands out zonc.cfg in its serialised form, without partition header: after yeYfsNvarTerm(1) the new one, before it
   the one of the host. The buffer stays the library's and ends with the next yeYfsNvarTerm or yeYfsYzonInit. 0, with
   the outputs unchanged: there is none (silent), or a pointer is null (398). */
YFS_API uint8_t yeYfsGetBuildZonCfgFcsBuffer(void** bufferOut, uint32_t* sizeOut);

/* 0, 1, 2: FCS_VELOR_CFG, FCS_ZON_CFG, FCS_CURRENT_VALUES. Above: FCS_CURRENT_VALUES and a report with code 0. */
YFS_API FcsFileName yeYfsGetFcsFileNameMapping(uint32_t index);

/* Bytes of an EFS image as the loaded file table says. */
YFS_API uint32_t yeYfsGetEfsSize(void);

/* 1 while the YFS volume is mounted; 1 while the tables are loaded. */
YFS_API uint8_t yeYfsIsInitialized(void);
YFS_API uint8_t yeFcsIsInitialized(void);

/* Do the volumes hold the live values? That is so while YFS is mounted and "/home/qrd/deploy" is not empty. Silent. */
YFS_API bool yeYfsIsVfsDeployed(void);

YFS_END_C

#ifdef __cplusplus
static_assert(sizeof(void*) != 8 || (sizeof(_commonYZonTable) == 12 && sizeof(YZonInitParams) == 64));
static_assert(alignof(YZonInitParams) == 1 && offsetof(_commonYZonTable, size) == sizeof(void*));
#endif
