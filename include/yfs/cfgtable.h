/* cfg tables: sets of small files as one byte string, their tree in memory, and the handle API over it.

   A table holds no names. A file in it is known by its fileno_t, so a table can be read only while a file table is
   active (yfs/vfs.h), and what the file table doesn't know is dropped on reading. Layout, lowest byte first:
     0               unsigned 32 bits: count of records
     4               the records, each a _cfg_file_entry_t
     4 + 12 * count  the payloads

   File image: one file as it crosses an interface, its record directly followed by its payload; 12 to 65,535 bytes.

   Statuses are those of fcs_status. Only a failed allocation of the handle record or of a new file node becomes a
   status; any other passes to the caller as std::bad_alloc. Not thread-safe. */
#pragma once

#include "yfs/le.h"
#include "yfs/vfs.h"

typedef struct _cfg_file_entry_t { /* at */
    yfs_le32 fileno;               /*  0  fileno_t */
    yfs_le32 offset;               /*  4  of the payload, from the first byte of the table */
    yfs_le16 size;                 /*  8  bytes of payload, the record not counted */
    yfs_le16 flags;                /* 10  bit 0: the value is available; the others are kept as they are */
} _cfg_file_entry_t;

/* The tables of a host. */
#ifdef __cplusplus
enum FcsFileName : uint32_t {
    FCS_VELOR_CFG = 0x10000006,     // the defaults
    FCS_ZON_CFG = 0x10000007,       // values that go before the defaults; also the table built at the end of a run
    FCS_CURRENT_VALUES = 0x10000008 // the values in force
};
#else
typedef uint32_t FcsFileName;
#define FCS_VELOR_CFG ((FcsFileName)0x10000006U)
#define FCS_ZON_CFG ((FcsFileName)0x10000007U)
#define FCS_CURRENT_VALUES ((FcsFileName)0x10000008U)
#endif

/* One file of a table that the host can reach: fields back to back. Each field that has an alignment of its own is
   packed by itself, since the record at the start is a class to C++ compilers and has none. */
typedef struct FcsFileEntry {
    _cfg_file_entry_t entry;                 /* the record in the cfg table */
    file_attributes_t attributes YFS_PACKED; /* from the file table, as is maxSize */
    uint32_t maxSize YFS_PACKED;             /* bytes of the largest payload */
    void* data YFS_PACKED;                   /* the payload, owned, malloc family; null if there is none in memory */
    uint8_t removed;                         /* 1: neither reached by the host nor written back */
    uint8_t available;                       /* bit 0 of entry.flags */
    char name[255];                          /* full path, zero-terminated */
    uint32_t size YFS_PACKED;                /* bytes in data; may differ from entry.size */
    uint8_t linked;                          /* 1 while the entry belongs to a list */
    struct FcsFileEntry* prev YFS_PACKED;
    struct FcsFileEntry* next YFS_PACKED;
} FcsFileEntry;

/* A table in its two forms: a tree behind a handle, and a list of entries. The address of the record is the address of
   its handle variable. Fields back to back. */
typedef struct YFS_PACKED FcsTable {
    void* handle;       /* null when closed; owned */
    FcsFileName name;   /* written, never read */
    uint32_t count;     /* entries in the list */
    void* buffer;       /* the serialised form, owned, malloc family; null if there is none */
    uint32_t size;      /* bytes in buffer */
    FcsFileEntry* head; /* null for an empty list */
    FcsFileEntry* tail; /* means nothing while head is null */
} FcsTable;

YFS_BEGIN_C

/* A handle is an opaque pointer that the caller keeps in a variable of its own. All handle operations answer 6 for a
   null handle before anything else is looked at. Names are copied in, buffers stay the caller's. Names must not be
   null; a null name answers 1. Each handle has one walk; it stands at the first file after createHandle,
   createHandleFromStructure, and each addNewFile and deleteFile that answered 0. */

/* Puts a new handle with an empty tree into *variable, whose former value is not looked at. 0 | 1: null variable | 9:
   no memory, *variable unchanged. After a std::bad_alloc *variable holds a handle without a tree, fit for closeHandle
   alone; every other operation answers 6 for it. */
YFS_API uint32_t createHandle(void** variable);

/* As createHandle, then reads the table in `table`, `length` bytes, into the tree. 0 | 1: null variable or table,
 *variable unchanged | 9 | 10: the table was refused, *variable is null. */
YFS_API uint32_t createHandleFromStructure(void** variable, const void* table, uint32_t length);

/* Frees the handle and its tree; *variable becomes null. 0 | 1: null variable | 6: *variable is null. */
YFS_API uint32_t closeHandle(void** variable);

/* Adds a file under the root as `name`; `folder` has no effect and may be null. `image` is a file image of `length`
   bytes, of which only the low 16 bits count. A fileno of 0 in its record is a request to find the number by name: it
   is written into `image`, and stays there if a later test fails. `check_size` holds the payload against maxSize.
   Tested in this order: 6 | 5: length below 12 | 1: null image or name | 2: fileno 0, and the file table doesn't have
   the name | 8: the file table doesn't have the fileno | 12: payload above maxSize | 11: the tree has a file of that
   name | 9. On any but 0 the tree is as it was. */
YFS_API uint32_t addNewFile(void* handle, const char* folder, const char* name, void* image, uint32_t length,
                            bool check_size);

/* Removes a file. `path` is cut at its first "/": a path that begins with one, and a file whose name holds one, are out
   of reach. 0 | 4: no such file | 6. */
YFS_API uint32_t deleteFile(void* handle, const char* path);

/* Copies the file image of `name` into `buffer`. *length in: bytes of buffer; out: bytes of the image, also where the
   buffer is too small. 0 | 1: null buffer or length, both unchanged | 4: no such file | 5: buffer too small | 6. */
YFS_API uint32_t getFileData(void* handle, const char* name, void* buffer, uint32_t* length);

/* Fills `entry` from the tree, then `attributes` and `maxSize` from the file table's entry of that name; the rest of
   *out is not touched. 0 | 1: null out | 4: no such file | 6 | 8: the file table doesn't have the name (`entry` is
   filled), or the node has no record (it isn't). */
YFS_API uint32_t getFileAttributes(void* handle, const char* name, FcsFileEntry* out);

/* The walk over the files in order of their names. `out` has to hold the name and its terminator; 255 bytes do.
   0 | 1: null out, the walk stays | 3: no file, or no more; `out` is not touched | 6. */
YFS_API uint32_t getFirstFileInRoot(void* handle, char* out);
YFS_API uint32_t getNextFile(void* handle, char* out);

/* Writes the tree as a table into `buffer`. *length in: bytes of buffer; out: bytes of the table. 0 | 1: null length;
   or null buffer with a *length that would do, unchanged then | 5: buffer too small, *length tells the need | 6. The
   usual pattern is two calls, the first with *length 0. A tree above 0xFFFFFFFF bytes always answers 5. */
YFS_API uint32_t flush(void* handle, void* buffer, uint32_t* length);

/* Reads the table in `table`, `length` bytes, into a handle whose tree is empty. False: the records or a payload run
   out of the buffer, or addNewFile refused a file (two records of one name, a payload above 65,523 bytes); what was
   read before stays in the tree. Records whose fileno the file table doesn't have are dropped. */
YFS_API bool loadDataFromFcsBuffer(void* handle, const void* table, uint32_t length);

/* True unless `entry` is null. */
YFS_API bool validateAttributs(const _cfg_file_entry_t* entry);

YFS_END_C

#ifdef __cplusplus

#include <deque>
#include <memory>
#include <string>
#include <vector>

static_assert(sizeof(_cfg_file_entry_t) == 12 && yfs::flash_record<_cfg_file_entry_t>);
static_assert(sizeof(FcsFileEntry) == 280 + 3 * sizeof(void*) && alignof(FcsFileEntry) == 1);
static_assert(sizeof(void*) != 8 || (sizeof(FcsFileEntry) == 304 && sizeof(FcsTable) == 44));
static_assert(offsetof(FcsFileEntry, attributes) == 12 && offsetof(FcsFileEntry, maxSize) == 14 &&
              offsetof(FcsFileEntry, data) == 18);
static_assert(offsetof(FcsTable, handle) == 0 && alignof(FcsTable) == 1);

// The tree in memory: reference-counted nodes, searched by name, walked in order, written out as a table. The order of
// fields and of virtual operations is part of the binary interface. Fields are open to the program. One that changes
// `children` itself keeps them sorted by fileCompare and free of cycles, or lookups by name may miss a child.
namespace image_editor {

class Directory;

class YFS_API IFile {
public:
    std::vector<char> data;              // file image; empty for a Directory made by the default constructor
    char name[YFS_FTBL_NAME_LENGTH + 1]; // without any path, zero-terminated; empty for every Directory
    _cfg_file_entry_t* entry;            // the record at the start of data; null if there is none
    std::string path;                    // of the parent, for getFullPath only; nothing here sets it
    Directory* parent;                   // not owning; nothing here sets it

    virtual bool isDirectory() = 0;
    // Bytes in a table; of a root: the length of its table without the 4 bytes of count.
    virtual uint32_t getSize() = 0;
    // Puts `file` among the children by its own name; `name` plays no part. False for a File and for a null `file`. A
    // name that is there already is not refused.
    virtual bool addFile(std::string name, std::shared_ptr<IFile> file) = 0;
    // Removes the child named by `path` up to its first "/", or hands the rest to it. False: no such file.
    virtual bool deleteFile(std::string path) = 0;
    // The first child named `name` as a whole, "/" included, with one more reference. False: none, *out unchanged.
    virtual bool getFile(std::string name, std::shared_ptr<IFile>* out) = 0;
    // Appends the records and payloads below this node; offsets count from the start of `payloads`, and are left so in
    // the nodes' own records.
    virtual void serialize(std::vector<_cfg_file_entry_t>& records, std::vector<char>& payloads) = 0;
    virtual ~IFile();

    // `name`, or `path`, "/" and `name`.
    std::string getFullPath();

    // `entry` points into `data`: a node stays where it was made.
    IFile(const IFile&) = delete;
    IFile& operator=(const IFile&) = delete;

protected:
    IFile();
    // Copies `length` bytes of `image`. A null image or a length below 12 gives a node without data and record, which
    // serialises to nothing.
    IFile(const void* image, unsigned int length);
};

// A leaf that owns one file image.
class YFS_API File : public IFile {
public:
    // Copies `length` bytes, at least 12, and at most 48 characters of `file_name`. The record's size becomes
    // length - 12, whatever the image said.
    File(void* image, unsigned int length, const char* file_name);
    ~File() override;

    bool isDirectory() override;
    uint32_t getSize() override;
    bool addFile(std::string name, std::shared_ptr<IFile> file) override;
    bool deleteFile(std::string path) override;
    bool getFile(std::string name, std::shared_ptr<IFile>* out) override;
    void serialize(std::vector<_cfg_file_entry_t>& records, std::vector<char>& payloads) override;
};

class YFS_API Directory : public IFile {
public:
    std::deque<std::shared_ptr<IFile>> children; // sorted ascending by fileCompare

    Directory();
    Directory(void* image, unsigned int length);
    ~Directory() override;

    bool isDirectory() override;
    uint32_t getSize() override;
    bool addFile(std::string name, std::shared_ptr<IFile> file) override;
    bool deleteFile(std::string path) override;
    bool getFile(std::string name, std::shared_ptr<IFile>* out) override;
    void serialize(std::vector<_cfg_file_entry_t>& records, std::vector<char>& payloads) override;
};

// A cursor over a tree: every node, directories too, parents before children. The end is the empty string. A change of
// the tree under way shifts positions: begin again with firstFile.
class YFS_API FileIterator {
public:
    std::shared_ptr<IFile> root; // keeps the tree alive
    Directory* current;          // the directory being walked, not owning; null until firstFile has seen one
    int32_t index;               // of the last returned node in current->children

    // Stands at the first file, as after firstFile.
    explicit FileIterator(std::shared_ptr<IFile> tree);
    ~FileIterator();
    FileIterator(const FileIterator&) = default;
    FileIterator& operator=(const FileIterator&) = default;

    // The name of the root's first child; empty if the root has none or is a File.
    std::string firstFile();
    // The full path of the next node; empty at the end, again and again, and where there was no first one.
    std::string nextFile();
};

// True if the name of `a` sorts before that of `b`: byte by byte as unsigned values, then the shorter one.
YFS_API bool fileCompare(std::shared_ptr<IFile> a, std::shared_ptr<IFile> b);

} // namespace image_editor

#endif
