/*
 * kz_host.h - the host kit of libkz_id3: every field of a file with one call.
 *
 * libkz_host.so does what every host of the ID3 filter module must get
 * right around it: it loads the module, allocates a process context,
 * registers the host routines, gives the module a read-ahead stream over a
 * file or a memory buffer, sets the block limit, pages with saved state when
 * asked, turns the character codes into UTF-8 (surrogate pairs joined), pairs
 * the description of a user-defined field with its value, tells the ID3v1
 * fields from the ID3v2 fields and guards against runaway input.
 *
 *   kz_host_reader* reader;
 *   if (kz_host_reader_new(NULL, &reader) != KZ_HOST_OK) ... ;
 *   kz_host_result* result;
 *   int status = kz_host_collect_file(reader, "song.mp3", NULL, &result);
 *   for (size_t i = 0; i < kz_host_result_count(result); ++i) {
 *       const kz_host_field* f = kz_host_result_field(result, i);
 *       printf("%s: %.*s\n", f->ident, (int)f->text_len, f->text);
 *   }
 *   kz_host_result_free(result);
 *   kz_host_reader_free(reader);
 *
 * Threads: a reader belongs to one thread at a time (it holds one module
 * context); readers are independent and may be used at the same time on
 * different threads.  Nothing in the library is global or mutable.
 *
 * Ownership: everything a function returns through a pointer belongs to the
 * object named (the reader or the result) and stays valid until that object
 * is freed or, for the reader, until its next read.
 *
 * Compiles as C99 and later and as C++11 and later.
 */
#ifndef KZ_HOST_H
#define KZ_HOST_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define KZ_HOST_API __attribute__((visibility("default")))
#else
#define KZ_HOST_API
#endif

/* ---- Status codes ---------------------------------------------------------
 * Every function that can fail returns one of these.  KZ_HOST_OK and
 * KZ_HOST_NOTHING_TO_READ are outcomes; the negative values are errors. */
enum {
    KZ_HOST_OK = 0,
    KZ_HOST_NOTHING_TO_READ = 1,        /* the module found no tag (open status 51, or
                                           any other non-zero open status) */
    KZ_HOST_ERROR_ARGUMENT = -1,        /* a null pointer, a bad option, or a reader
                                           used again from inside its own visitor */
    KZ_HOST_ERROR_NO_MEMORY = -2,
    KZ_HOST_ERROR_MODULE_NOT_FOUND = -3,/* no module file where the kit looked */
    KZ_HOST_ERROR_MODULE_INVALID = -4,  /* dlopen failed, or no VwGetRtns, or an empty entry */
    KZ_HOST_ERROR_NO_CONTEXT = -5,      /* VwAllocProc returned null */
    KZ_HOST_ERROR_IO = -6,              /* open, stat or read failed: see errno_value */
    KZ_HOST_ERROR_NOT_REGULAR = -7,     /* a directory (errno_value EISDIR), device,
                                           FIFO or socket */
    KZ_HOST_ERROR_TOO_LARGE = -8,       /* 4 GiB or more: beyond the module's positions */
    KZ_HOST_ERROR_UNFINISHED = -9,      /* the module did not finish the file (runaway guard) */
    KZ_HOST_ERROR_STOPPED = -10         /* the visitor asked to stop */
};

/* A fixed English sentence for a status code; never null. */
KZ_HOST_API const char* kz_host_strerror(int status);

/* ---- Version -------------------------------------------------------------- */
/* The package version, as "1.0.0". */
KZ_HOST_API const char* kz_host_version(void);

/* ---- Reader --------------------------------------------------------------- */
typedef struct kz_host_reader kz_host_reader;

typedef struct kz_host_reader_options {
    size_t struct_size;      /* sizeof(kz_host_reader_options), set by _init */
    const char* module_path; /* null: the environment variable KZ_ID3_MODULE, then
                                kz_id3/libkz_id3.so beside libkz_host.so (the
                                installed and the build layout) */
} kz_host_reader_options;

KZ_HOST_API void kz_host_reader_options_init(kz_host_reader_options* options);

/* Loads the module and allocates one module context.  `options` may be
 * null.  On failure *reader is null and a one-line reason, naming every
 * place tried, is written to `message` (`message_size` bytes with its NUL;
 * `message` may be null). */
KZ_HOST_API int kz_host_reader_new(const kz_host_reader_options* options,
                                   kz_host_reader** reader, char* message,
                                   size_t message_size);
KZ_HOST_API void kz_host_reader_free(kz_host_reader* reader);

/* The module file the reader loaded. */
KZ_HOST_API const char* kz_host_reader_module_path(const kz_host_reader* reader);
/* The version marker the module exports (the text after its leading NUL). */
KZ_HOST_API const char* kz_host_reader_module_version(const kz_host_reader* reader);

/* ---- Read options --------------------------------------------------------- */
#define KZ_HOST_TYPE_DETECT 0u /* file_type: detect from the file (below) */

enum {
    KZ_HOST_READ_CODES = 1u   /* also hand over the raw character codes */
};

typedef struct kz_host_read_options {
    size_t struct_size;   /* sizeof(kz_host_read_options), set by _init */
    uint16_t file_type;   /* identifier passed to VwStreamOpen; KZ_HOST_TYPE_DETECT */
    uint32_t block_limit; /* largest host block for one frame body; 0: the file's size */
    uint32_t stop_every;  /* stop at every K-th frame break, save and restore; 0: never */
    uint64_t char_limit;  /* characters kept per file; 0: a bound from the file's size */
    unsigned flags;       /* KZ_HOST_READ_* */
} kz_host_read_options;

KZ_HOST_API void kz_host_read_options_init(kz_host_read_options* options);

/* ---- What a read delivers -------------------------------------------------- */
enum {
    KZ_HOST_ITEM_FIELD = 0,   /* a tagged field (SO_TAG_FRAME) */
    KZ_HOST_ITEM_OUTSIDE = 1, /* text delivered outside every field (IPLS) */
    KZ_HOST_ITEM_FAILURE = 2  /* SOReportFailure: `tag` holds the code (9: trailer) */
};

/* Raw character codes, with KZ_HOST_READ_CODES: the code passed to
 * SOOutChar (a byte, or a UTF-16 unit when KZ_HOST_CODE_UTF16 is set), or a
 * line break (SOOutSpecial(5)) as KZ_HOST_CODE_SPECIAL | 5. */
#define KZ_HOST_CODE_VALUE 0xFFFFu
#define KZ_HOST_CODE_UTF16 0x10000u
#define KZ_HOST_CODE_SPECIAL 0x20000u

/* A string tag (SO_TAG_STRING) inside a field. */
typedef struct kz_host_string {
    uint32_t tag;           /* its tag number */
    size_t offset;          /* byte offset in the field's text where it stood */
    const char* text;       /* UTF-8, NUL-terminated; text_len excludes the NUL */
    size_t text_len;
    const uint32_t* codes;  /* null without KZ_HOST_READ_CODES */
    size_t code_count;
} kz_host_string;

typedef struct kz_host_field {
    int kind;               /* KZ_HOST_ITEM_* */
    uint32_t tag;           /* tag number (the failure code for KZ_HOST_ITEM_FAILURE) */
    uint32_t number;        /* field number: KZ_FIELD_TIT2 ..., 500 + n for TXXX/WXXX */
    const char* ident;      /* "TIT2", "TXXX", "WXXX", "TXXX/WXXX", "ID3v1 title",
                               "field N"; "" for outside text and failures */
    int id3v1;              /* 1: a field of the ID3v1 trailer */
    const char* description;/* user-defined fields: the first string's text; else null */
    size_t description_len;
    const char* text;       /* the value as UTF-8, string tags excluded; NUL-terminated,
                               but may hold NUL characters: use text_len.  Single-byte
                               codes are ISO-8859-1, UTF-16 surrogate pairs are joined
                               and an unpaired half becomes U+FFFD; a line break
                               (SOOutSpecial(5)) and a 0x0A character are both "\n";
                               other SOOutSpecial codes are left out */
    size_t text_len;
    const kz_host_string* strings; /* every string tag inside the field, in order */
    size_t string_count;
    const uint32_t* codes;  /* the value's raw codes (strings excluded), or null */
    size_t code_count;
} kz_host_field;

/* File-level facts of one read. */
typedef struct kz_host_file_info {
    uint16_t file_type;     /* the identifier passed to VwStreamOpen */
    int detected;           /* 1: file_type came from type detection */
    char type_name[32];     /* the name the module wrote into the file information record */
    int32_t open_status;    /* VwStreamOpen's result: 0, or 51 for nothing to read */
    int end_seen;           /* the module signalled the end of content */
    int truncated;          /* a limit (characters, block) cut the file short */
    int errno_value;        /* with KZ_HOST_ERROR_IO: the errno of the failed call */
    uint64_t size;          /* bytes in the file or buffer */
    size_t field_count;     /* items delivered (fields, outside text, failures) */
} kz_host_file_info;

/* Called for each item as soon as it is complete and its kind is known.  A
 * field is known to come from the ID3v1 trailer only when the end break
 * arrives with no frame break after it, so the fields since the last frame
 * break are held back until then, never more.  The pointers are valid only
 * during the call.  A non-zero return stops the read (KZ_HOST_ERROR_STOPPED). */
typedef int (*kz_host_visitor)(const kz_host_field* field, void* user);

/* Streaming reads.  `options` and `info` may be null.  Returns KZ_HOST_OK,
 * KZ_HOST_NOTHING_TO_READ or an error.  `info` is filled as the read goes:
 * file_type, detected, type_name, open_status and size are set before the
 * first call of the visitor, the rest when the read returns. */
KZ_HOST_API int kz_host_read_file(kz_host_reader* reader, const char* path,
                                  const kz_host_read_options* options,
                                  kz_host_visitor visitor, void* user,
                                  kz_host_file_info* info);
KZ_HOST_API int kz_host_read_memory(kz_host_reader* reader, const void* data, size_t size,
                                    const kz_host_read_options* options,
                                    kz_host_visitor visitor, void* user,
                                    kz_host_file_info* info);

/* ---- Collected result ------------------------------------------------------ */
typedef struct kz_host_result kz_host_result;

/* The same reads, every item kept.  *result is set whenever the status is
 * KZ_HOST_OK, KZ_HOST_NOTHING_TO_READ, KZ_HOST_ERROR_UNFINISHED (what
 * arrived before the guard) or KZ_HOST_ERROR_IO after the file was opened
 * (what was read before the error), null otherwise. */
KZ_HOST_API int kz_host_collect_file(kz_host_reader* reader, const char* path,
                                     const kz_host_read_options* options,
                                     kz_host_result** result);
KZ_HOST_API int kz_host_collect_memory(kz_host_reader* reader, const void* data, size_t size,
                                       const kz_host_read_options* options,
                                       kz_host_result** result);
KZ_HOST_API size_t kz_host_result_count(const kz_host_result* result);
KZ_HOST_API const kz_host_field* kz_host_result_field(const kz_host_result* result,
                                                      size_t index);
KZ_HOST_API const kz_host_file_info* kz_host_result_info(const kz_host_result* result);
/* The whole result in one buffer (layout below), for bindings that want one
 * foreign call per file.  Owned by the result. */
KZ_HOST_API const void* kz_host_result_packed(const kz_host_result* result, size_t* size);
KZ_HOST_API void kz_host_result_free(kz_host_result* result);

/* Packed layout, native byte order, no padding:
 *   u32 item count, i32 open status, u16 file type,
 *   u8 flags (1: end seen, 2: truncated, 4: type detected),
 *   u8 type name length, type name bytes;
 *   then per item: u8 kind, u8 id3v1, u8 ident length, u8 0,
 *             u32 tag, u32 number,
 *             u32 description length (0xFFFFFFFF: none), u32 text length,
 *             ident bytes, description bytes, text bytes (UTF-8, no NUL)
 * String tags and codes are not packed. */
#define KZ_HOST_PACKED_NO_DESCRIPTION 0xFFFFFFFFu

/* ---- Tracing ----------------------------------------------------------------
 * For tools that show exactly what the module delivers (kzdump --trace): the
 * same read, with every host routine call handed over as it arrives instead
 * of being made into fields.  Paging, the limits and the runaway guards work
 * as in the other reads. */
typedef struct kz_host_call {
    uint16_t routine;      /* SO_ROUTINE_* of kz_id3.h; 0: VwStreamOpen has returned */
    uint32_t args[3];      /* the arguments before the user pair, in order; for
                              SOBeginTag args[2] is the descriptor's field number;
                              for VwStreamOpen args[0] is its result */
    int has_descriptor;    /* SOBeginTag: 0 when the descriptor pointer was null */
    uint32_t result;       /* SOOutBreak: the status the kit answered */
    const char* type_name; /* VwStreamOpen: the type name written by the module */
} kz_host_call;

typedef void (*kz_host_tracer)(const kz_host_call* call, void* user);

KZ_HOST_API int kz_host_trace_file(kz_host_reader* reader, const char* path,
                                   const kz_host_read_options* options,
                                   kz_host_tracer tracer, void* user,
                                   kz_host_file_info* info);
KZ_HOST_API int kz_host_trace_memory(kz_host_reader* reader, const void* data, size_t size,
                                     const kz_host_read_options* options,
                                     kz_host_tracer tracer, void* user,
                                     kz_host_file_info* info);

/* ---- Type detection ---------------------------------------------------------
 * The host decides a file's type before it opens it.  These look at the
 * first MPEG audio frame header within 64 KiB after the ID3v2 tags
 * (confirmed by a second header where the first one's length says it
 * should be, or by the frame ending where the audio ends) and at the ID3v1
 * trailer, and give one of the identifiers 1706 to 1715:
 *   MPEG-1 Layer III: 1707 with an ID3v2 tag, else 1706 with an ID3v1
 *   trailer, else 1710; MPEG-1 Layer I, II: 1711, 1712; MPEG-2 and 2.5
 *   Layer I, II, III: 1713, 1714, 1715; no audio frame: 1709 with an ID3v2
 *   tag, else 1708 with an ID3v1 trailer, else 1710. */
KZ_HOST_API int kz_host_detect_file(const char* path, uint16_t* file_type);
KZ_HOST_API int kz_host_detect_memory(const void* data, size_t size, uint16_t* file_type);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* KZ_HOST_H */
