/* The simulated NOR flash under AFS, the memory primitives, and the checksums of the flash translation layer.

   Everything here can be replaced: a program that defines SpiDrvRead, SpiDrvWrite and SpiDrvEraseBlock itself, in its
   own link or in a preloaded library, puts its own chip under the library; likewise the Lt* primitives. The layers
   above test every result. Not thread-safe: one caller at a time. */
#pragma once

#include "yfs/export.h"

YFS_BEGIN_C

/* The image under the medium; all SpiDrv* addresses count from its first byte. The caller owns it and keeps it valid
   while it is attached. Null until SpiFlashDrvInitialize. */
extern YFS_API uint8_t* gpBuffer;

/* Attaches `image`. Always 0. */
YFS_API uint32_t SpiFlashDrvInitialize(void* image);

/* Does nothing: the image is complete after every write. */
YFS_API void SpiFlashDrvDeinitialize(void);

/* Copies `len` bytes at byte address `addr` of the image into `buf`. 0; a replacement medium may fail with any other
   value, which the layers above turn into status 5. Non-zero while no image is attached, and outside the flash of the
   volume that was mounted with it; an image that a program attaches itself has no bounds. */
YFS_API uint32_t SpiDrvRead(uint32_t addr, uint32_t len, void* buf);

/* Puts `len` bytes over the image at `addr`. A plain copy: the rule of NOR flash, that programming only clears bits,
   is kept by the layers above. 0, or a replacement medium's failure. */
YFS_API uint32_t SpiDrvWrite(uint32_t addr, uint32_t len, const void* buf);

/* Sets the 4096 bytes at `addr` to 0xFF. 0, or a replacement medium's failure. */
YFS_API uint32_t SpiDrvEraseBlock(uint32_t addr);

/* Memory primitives: all allocations of FTL, AFS and EFS go through these. Null on failure. */
YFS_API void* LtAllocateMemory(size_t size);
YFS_API void* LtAllocateZeroMemory(size_t count);
YFS_API void LtFreeMemory(void* ptr);

/* Fills `count` bytes with the low 8 bits of `value`; returns `dst`. */
YFS_API void* LtSetMemory(void* dst, int32_t value, size_t count);

/* Byte compare as unsigned values: negative, 0 or positive. */
YFS_API int64_t LtCompareMemory(const void* lhs, const void* rhs, size_t len);

/* Copy with tests. 0 | 3: `dst` or `src` null | 40: `count` above `dst_size` | 43: the copy itself failed. The tests
   come in this order; on any but 0 nothing is written. */
YFS_API uint32_t ByteCopy(void* dst, size_t dst_size, const void* src, size_t count);

/* Copies `len` bytes from (to) the host address a + b, two 32-bit values added in 64 bits. The first and fifth
   arguments are ignored. Always 0. */
YFS_API uint32_t mg_copyfrom(uint32_t arg0, uint32_t a, uint32_t b, void* buf, uint32_t arg4, uint32_t len);
YFS_API uint32_t mg_copyto(uint32_t arg0, uint32_t a, uint32_t b, const void* buf, uint32_t arg4, uint32_t len);

/* The nibble tables of crc8. */
extern YFS_API const uint8_t gCrc8_low[16];
extern YFS_API const uint8_t gCrc8_high[16];

/* CRC-8: polynomial 0x07, most significant bit first, initial value 0x01, no final XOR. `len` bytes of `data`; 0 bytes
   give 0x01, "abc" gives 0x34. Guards bytes 0 to 15 of an erase-unit header. */
YFS_API uint8_t crc8(const void* data, uint32_t len);

/* CRC-16: polynomial 0x1021, most significant bit first, initial value 0xFFFF, no final XOR (the parameters of
   CRC-16/CCITT-FALSE), over `len` bytes of `data` and then key[0], key[1]. A `len` of 0 or less takes the key alone.
   Guards each 64-byte page; the key is its page number, so a page at the wrong place fails. */
YFS_API uint16_t crc16(const void* data, int32_t len, const uint8_t* key);

/* The same table as crc16 over a 14-bit register: initial value 0x3FFF, cut to 14 bits after each byte. Not a standard
   CRC. `len` 0 or less gives 0x3FFF; "abc" gives 0x3A71, two zero bytes give 0x0B5B. Chains the records of a log. */
YFS_API uint16_t crc14(const void* data, int32_t len);

YFS_END_C
