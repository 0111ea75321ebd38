/*
 * kz_id3.h - host interface of libkz_id3, the ID3 tag filter module.
 *
 * A host loads libkz_id3.so, asks VwGetRtns for the entry table and drives
 * the module through it:
 *
 *   VwGetRtns(table, level)          fill the host's entry table
 *   VwAllocProc()                    a process context for one thread
 *   VwLocalUp, VwSetSoRtn, VwSetUser register the host routines and user pair
 *   VwStreamOpen                     0: something to read, 51: nothing
 *   VwStreamSection                  start the file's single section
 *   VwStreamRead ...                 until SOOutBreak(SO_BREAK_END, 0)
 *   VwStreamTell + VwGetData         save the position between reads
 *   VwSetData + VwStreamSeek         restore it
 *   VwStreamClose, VwFreeProc
 *
 * Everything the module produces reaches the host through the routines it
 * registered; every routine receives the user pair as its last two
 * arguments.  The file is read only through the host's stream object.
 */
#ifndef KZ_ID3_H
#define KZ_ID3_H

#include <stddef.h>
#include <stdint.h>

#include "kz_id3_fields.h" /* KZ_FIELD_*, KzFieldIdent, KzFieldLabel */
#include "kz_id3_version.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Host routine identifiers (VwSetSoRtn) ------------------------------ */
/* Accepted identifiers are 1 to 148 except 119 and 120; the module calls
 * only these nine. */
enum {
    SO_ROUTINE_OUTCHAR = 1,
    SO_ROUTINE_OUTSPECIAL = 2,
    SO_ROUTINE_OUTBREAK = 5,
    SO_ROUTINE_STARTSECTION = 18,
    SO_ROUTINE_REPORTFAILURE = 20,
    SO_ROUTINE_BEGINTAG = 49,
    SO_ROUTINE_ENDTAG = 50,
    SO_ROUTINE_SETCHARSET = 90,
    SO_ROUTINE_SETSECTIONFLAGS = 142,
    SO_ROUTINE_MAX = 148
};

/* ---- Constants passed to the host ---------------------------------------- */
#define SO_BREAK_END 2u
#define SO_BREAK_FRAME 11u
#define SO_TAG_FRAME 0xA0010004u
#define SO_TAG_STRING 0x201C0000u
#define SO_TAG_STRING_END_NUMBER 0xFFFFFFFFu /* number on every SOEndTag(SO_TAG_STRING) */
#define SO_CHARSET_LATIN1 0x00080101u
#define SO_CHARSET_UTF16 0x14B00000u
#define SO_SPECIAL_LINEBREAK 5u
#define SO_SECTION_FLAGS 0x8000u
#define SO_FAILURE_TRAILER 9u

/* Results of VwStreamOpen. */
#define VW_OPEN_OK 0
#define VW_OPEN_NOTHING_TO_READ 51

/* Word the module writes at byte 0 of the file information record. */
#define VW_FILEINFO_WORD 9u

/* ---- The host routines the module calls ---------------------------------- */
/* The tag descriptor whose address SOBeginTag receives: the module sets the
 * field number only. */
typedef struct KzTagDescriptor {
    uint32_t fieldNumber;
} KzTagDescriptor;

typedef void (*SOOutCharRtn)(uint16_t code, uint64_t user1, uint64_t user2);
typedef void (*SOOutSpecialRtn)(uint16_t special, uint64_t user1, uint64_t user2);
/* The break status is the low 16 bits of the result: 0 goes on, anything
 * else stops the read call after the current frame. */
typedef uint32_t (*SOOutBreakRtn)(uint16_t kind, uint16_t zero, uint64_t user1, uint64_t user2);
typedef void (*SOStartSectionRtn)(uint32_t nine, uint32_t zero1, uint32_t zero2, uint64_t user1,
                                  uint64_t user2);
typedef void (*SOReportFailureRtn)(uint32_t failure, uint64_t user1, uint64_t user2);
typedef void (*SOBeginTagRtn)(uint32_t kind, uint32_t number, const KzTagDescriptor* descriptor,
                              uint64_t user1, uint64_t user2);
typedef void (*SOEndTagRtn)(uint32_t kind, uint32_t number, uint64_t user1, uint64_t user2);
typedef void (*SOSetCharSetRtn)(uint32_t charset, uint64_t user1, uint64_t user2);
typedef void (*SOSetSectionFlagsRtn)(uint32_t flags, uint64_t user1, uint64_t user2);

/* Any routine, as VwSetSoRtn stores it; cast to the typed form above. */
typedef void (*SORoutine)(void);

/* ---- The host's stream object --------------------------------------------- */
typedef struct KzStream KzStream;
/* Reads up to count bytes; *countRead receives how many arrived. */
typedef int32_t (*KzStreamReadOp)(KzStream* stream, void* buffer, uint32_t count,
                                  uint32_t* countRead);
/* origin: 0 from the start, 1 from the current position, 2 from the end.
 * Non-zero when the seek is refused (the position is then unchanged). */
typedef int32_t (*KzStreamSeekOp)(KzStream* stream, uint16_t origin, int32_t offset);
typedef int32_t (*KzStreamTellOp)(KzStream* stream, uint32_t* position);

struct KzStream {
    void* reserved0;      /* byte 0, unused by the module */
    KzStreamReadOp read;  /* byte 8 */
    void* reserved16;     /* byte 16, unused by the module */
    KzStreamSeekOp seek;  /* byte 24 */
    KzStreamTellOp tell;  /* byte 32 */
};

#define SO_SEEK_SET 0
#define SO_SEEK_CUR 1
#define SO_SEEK_END 2

/* ---- File information record ------------------------------------------------ */
typedef struct KzFileInfo {
    uint32_t word;        /* set to VW_FILEINFO_WORD */
    uint8_t reserved[20];
    char typeName[32];    /* byte 24: the type's display name, NUL-terminated */
} KzFileInfo;

/* ---- File types ---------------------------------------------------------- */
typedef struct VwOverlayRow {
    uint16_t typeId;
    char name[34]; /* a tab, the display name, NUL padding */
} VwOverlayRow;

#define VW_FILETYPE_FIRST 1706
#define VW_FILETYPE_COUNT 10
#define VW_FILETYPE_DEFAULT 1707 /* MPEG-1 audio - Layer 3, ID3v2.x */

/* ---- Entry table ------------------------------------------------------------ */
enum {
    VW_ENTRY_STREAMOPEN = 0,
    VW_ENTRY_STREAMSECTION = 1,
    VW_ENTRY_STREAMREAD = 2,
    VW_ENTRY_STREAMTELL = 3,
    VW_ENTRY_STREAMSEEK = 4,
    VW_ENTRY_GETINFO = 5,
    VW_ENTRY_GETDATA = 6,
    VW_ENTRY_SETDATA = 7,
    VW_ENTRY_LOCALUP = 8,
    VW_ENTRY_LOCALDOWN = 9,
    VW_ENTRY_ALLOCPROC = 10,
    VW_ENTRY_FREEPROC = 11,
    VW_ENTRY_SETUSER = 12,
    VW_ENTRY_SETSORTN = 13,
    VW_ENTRY_STREAMCLOSE = 14,
    VW_ENTRY_STREAMREADRECORD = 17,
    VW_ENTRY_DOSPECIAL = 18,
    VW_ENTRY_TABLE_SIZE = 36
};

/* Interface levels above these also fill the entries named. */
#define VW_LEVEL_DOSPECIAL 18 /* entry 18 when level > 18 */
#define VW_LEVEL_NULL_19_22 22
#define VW_LEVEL_NULL_23_33 29

typedef void (*VwEntry)(void);

/* ---- Saved state block ------------------------------------------------------ */
#define VW_SAVED_STATE_SIZE 36
#define VW_PARSE_STATE_SIZE 16428

typedef struct VwSavedState {
    uint32_t savedPos;
    uint16_t sectionState;
    uint16_t reserved1;
    uint32_t tagPos;
    uint32_t frameCount;
    uint8_t versionMajor;
    uint8_t versionRevision;
    uint16_t headerFlags[4]; /* unsynchronisation, extended header, experimental, footer */
    uint16_t reserved2;
    uint32_t tagSize;
    uint32_t tagEnd;
} VwSavedState;

/* VwGetInfo identifiers the module answers (1 to 13). */
enum {
    VW_INFO_SAVED_STATE_SIZE = 1,
    VW_INFO_PARSE_STATE_SIZE = 2,
    VW_INFO_TYPE_COUNT = 6,
    VW_INFO_TYPE_IDS = 7,
    VW_INFO_BUILD_DATE = 8,
    VW_INFO_BUILD_TIME = 9
};

/* ---- Entry points ------------------------------------------------------------ */
typedef struct VwContext VwContext; /* the process context, opaque to the host */

void VwGetRtns(VwEntry* entryTable, uint16_t interfaceLevel);
VwContext* VwAllocProc(void);
void VwFreeProc(VwContext* context);
void VwLocalUp(uint64_t value, uint64_t* out, VwContext* context);
void VwLocalDown(uint64_t value, uint64_t* out);
void VwSetSoRtn(uint16_t identifier, SORoutine routine, VwContext* context);
void VwSetUser(uint64_t user1, uint64_t user2, VwContext* context);
int32_t VwStreamOpen(KzStream* stream, uint16_t fileType, uint64_t reserved, KzFileInfo* fileInfo,
                     VwContext* context);
int32_t VwGetInfo(void* destination, uint16_t infoId);
int32_t VwStreamSection(KzStream* stream, VwContext* context);
int32_t VwStreamRead(KzStream* stream, VwContext* context);
int32_t VwStreamTell(KzStream* stream, VwContext* context);
int32_t VwStreamSeek(KzStream* stream, VwContext* context);
void VwGetData(void* block, VwContext* context);
void VwSetData(const void* block, VwContext* context);
int32_t VwDoSpecial(void);
void VwStreamClose(KzStream* stream, VwContext* context); /* releases nothing */
void VwStreamReadRecord(void);
void VwGetSectionDataFunc(void);
void VwSetSectionDataFunc(void);
/* The default of every host routine entry: does nothing and returns 0. */
uint32_t SODummy(void);

/* Typed forms of the entry table's entries. */
typedef VwContext* (*VwAllocProcFn)(void);
typedef void (*VwFreeProcFn)(VwContext*);
typedef void (*VwLocalUpFn)(uint64_t, uint64_t*, VwContext*);
typedef void (*VwSetSoRtnFn)(uint16_t, SORoutine, VwContext*);
typedef void (*VwSetUserFn)(uint64_t, uint64_t, VwContext*);
typedef int32_t (*VwStreamOpenFn)(KzStream*, uint16_t, uint64_t, KzFileInfo*, VwContext*);
typedef int32_t (*VwGetInfoFn)(void*, uint16_t);
typedef int32_t (*VwStreamFn)(KzStream*, VwContext*);
typedef void (*VwGetDataFn)(void*, VwContext*);
typedef void (*VwSetDataFn)(const void*, VwContext*);
typedef void (*VwStreamCloseFn)(KzStream*, VwContext*);
typedef void (*VwGetRtnsFn)(VwEntry*, uint16_t);

/* ---- Exported data ------------------------------------------------------------ */
/* `version` points to a NUL byte followed by the marker "QZV_VER=..." and its
 * NUL.  Its name is a common word that a host may use for a global of its
 * own, so it is declared only for a host that defines
 * KZ_ID3_DECLARE_VERSION_SYMBOL before including this header; any host can
 * reach it through dlsym(module, "version"). */
#ifdef KZ_ID3_DECLARE_VERSION_SYMBOL
extern const char* const version;
#endif
extern const VwOverlayRow VwId3OverlayId[VW_FILETYPE_COUNT];

#ifdef __cplusplus
} /* extern "C" */
#endif

/* ---- Layout a host relies on ------------------------------------------------- */
#if defined(__cplusplus)
#define KZ_STATIC_ASSERT(condition, message) static_assert(condition, message)
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define KZ_STATIC_ASSERT(condition, message) _Static_assert(condition, message)
#else
/* C99 has no static assertion: an array type of negative size fails instead. */
#define KZ_STATIC_ASSERT_NAME2(line) kz_static_assert_##line
#define KZ_STATIC_ASSERT_NAME(line) KZ_STATIC_ASSERT_NAME2(line)
#define KZ_STATIC_ASSERT(condition, message) \
    typedef char KZ_STATIC_ASSERT_NAME(__LINE__)[(condition) ? 1 : -1]
#endif
KZ_STATIC_ASSERT(sizeof(KzTagDescriptor) == 4, "tag descriptor is one word");
KZ_STATIC_ASSERT(offsetof(KzStream, read) == 8, "stream read at byte 8");
KZ_STATIC_ASSERT(offsetof(KzStream, reserved16) == 16, "stream reserved word at byte 16");
KZ_STATIC_ASSERT(offsetof(KzStream, seek) == 24, "stream seek at byte 24");
KZ_STATIC_ASSERT(offsetof(KzStream, tell) == 32, "stream tell at byte 32");
KZ_STATIC_ASSERT(offsetof(KzFileInfo, word) == 0, "file info word at byte 0");
KZ_STATIC_ASSERT(offsetof(KzFileInfo, typeName) == 24, "file info name at byte 24");
KZ_STATIC_ASSERT(sizeof(KzFileInfo) == 56, "file info record is 56 bytes");
KZ_STATIC_ASSERT(offsetof(VwOverlayRow, name) == 2, "type row name at byte 2");
KZ_STATIC_ASSERT(sizeof(VwOverlayRow) == 36, "type rows are 36 bytes");
KZ_STATIC_ASSERT(sizeof(VwSavedState) == VW_SAVED_STATE_SIZE, "saved state is 36 bytes");
KZ_STATIC_ASSERT(offsetof(VwSavedState, sectionState) == 4, "sectionState at byte 4");
KZ_STATIC_ASSERT(offsetof(VwSavedState, tagPos) == 8, "tagPos at byte 8");
KZ_STATIC_ASSERT(offsetof(VwSavedState, frameCount) == 12, "frameCount at byte 12");
KZ_STATIC_ASSERT(offsetof(VwSavedState, versionMajor) == 16, "versionMajor at byte 16");
KZ_STATIC_ASSERT(offsetof(VwSavedState, versionRevision) == 17, "versionRevision at byte 17");
KZ_STATIC_ASSERT(offsetof(VwSavedState, headerFlags) == 18, "headerFlags at byte 18");
KZ_STATIC_ASSERT(offsetof(VwSavedState, tagSize) == 28, "tagSize at byte 28");
KZ_STATIC_ASSERT(offsetof(VwSavedState, tagEnd) == 32, "tagEnd at byte 32");

#endif /* KZ_ID3_H */
