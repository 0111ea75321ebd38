/*
 * kz_host.h - the host kit of libkz_id3: every field of a file with one call.
 *
 * libkz_host.so does what every host of the ID3 filter module must get
 * right around it: it loads the module, gives it a read-ahead stream over a
 * file or a memory buffer, bounds its memory, pages with saved state when
 * asked, turns the characters it delivers into UTF-8 (surrogate pairs
 * joined), pairs the description of a user-defined field with its value,
 * tells the ID3v1 fields from the ID3v2 fields, guards against runaway
 * input, and walks directory trees.  This header is all a program needs:
 *
 *   #include <errno.h>
 *   #include <stdio.h>
 *   #include <string.h>
 *   #include "kz_host.h"
 *
 *   int main(int argc, char** argv) {
 *       char message[512];
 *       kz_host_reader* reader;
 *       kz_host_result* result;
 *       if (argc != 2) return 2;
 *       if (kz_host_reader_new(NULL, &reader, message, sizeof message) != KZ_HOST_OK) {
 *           fprintf(stderr, "%s\n", message);
 *           return 1;
 *       }
 *       int status = kz_host_collect_file(reader, argv[1], NULL, &result);
 *       for (size_t i = 0; i < kz_host_result_count(result); ++i) {
 *           const kz_host_field* f = kz_host_result_field(result, i);
 *           printf("%s: %.*s\n", f->ident, (int)f->text_len, f->text);
 *       }
 *       if (status < 0)
 *           fprintf(stderr, "%s: %s\n", argv[1],
 *                   status == KZ_HOST_ERROR_IO ? strerror(errno) : kz_host_strerror(status));
 *       kz_host_result_free(result);
 *       kz_host_reader_free(reader);
 *       return status < 0;
 *   }
 *
 * Build it with `cc example.c $(pkg-config --cflags --libs kz_host)`.
 *
 * What arrives is what the module delivers, as stored in the file: the
 * module reads ID3v2.4 UTF-8 text as UTF-16, delivers no dates such as
 * TDRC, and keeps a value's terminator byte; the host guide's section
 * "What the module does not do" lists every such limit.
 *
 * Threads: a reader belongs to one thread at a time; readers are
 * independent and may be used at the same time on different threads.
 * Nothing in the library is global or mutable.
 *
 * Ownership: everything a function returns through a pointer belongs to the
 * object named (the reader, the result or the walk) and stays valid until
 * that object is freed or, for the reader and the walk, until their next
 * call.
 *
 * Structures the kit fills may grow in later versions: each carries its
 * size in `struct_size`, which the caller sets (with the _init function)
 * for structures it owns, and the kit sets for those it hands out.
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

/* ---- Version ---------------------------------------------------------------
 * The package version this header belongs to; kz_host_version() gives the
 * library's at run time. */
#define KZ_HOST_VERSION_MAJOR 2
#define KZ_HOST_VERSION_MINOR 0
#define KZ_HOST_VERSION_PATCH 0
#define KZ_HOST_VERSION_STRING "2.0.0"

/* The package version of the library, as "2.0.0". */
KZ_HOST_API const char* kz_host_version(void);

/* ---- Status codes ---------------------------------------------------------
 * Every function that can fail returns one of these.  KZ_HOST_OK,
 * KZ_HOST_NOTHING_TO_READ and KZ_HOST_WALK_END are outcomes; the negative
 * values are errors.  A function that fails with KZ_HOST_ERROR_IO or
 * KZ_HOST_ERROR_NOT_REGULAR also leaves the failing system call's error in
 * errno (and in kz_host_file_info.errno_value). */
enum {
    KZ_HOST_OK = 0,
    KZ_HOST_NOTHING_TO_READ = 1,        /* the file holds no tag the module reads */
    KZ_HOST_WALK_END = 2,               /* kz_host_walk_next: no more entries */
    KZ_HOST_ERROR_ARGUMENT = -1,        /* a null pointer, a bad option, or a reader
                                           used again from inside its own visitor */
    KZ_HOST_ERROR_NO_MEMORY = -2,
    KZ_HOST_ERROR_MODULE_NOT_FOUND = -3,/* no module file where the kit looked */
    KZ_HOST_ERROR_MODULE_INVALID = -4,  /* the file is not a module the kit can load */
    KZ_HOST_ERROR_NO_CONTEXT = -5,      /* the module could not set up its state */
    KZ_HOST_ERROR_IO = -6,              /* open, stat or read failed: see errno */
    KZ_HOST_ERROR_NOT_REGULAR = -7,     /* a directory (errno_value EISDIR), device,
                                           FIFO or socket */
    KZ_HOST_ERROR_TOO_LARGE = -8,       /* 4 GiB or more: beyond the module's positions */
    KZ_HOST_ERROR_UNFINISHED = -9,      /* the module did not finish the file (runaway guard) */
    KZ_HOST_ERROR_STOPPED = -10         /* the visitor asked to stop */
};

/* A fixed English sentence for a status code; never null. */
KZ_HOST_API const char* kz_host_strerror(int status);

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

/* ---- File types -------------------------------------------------------------
 * The module reads every file alike; the type a file is opened with only
 * names it (kz_host_file_info.type_name).  Type detection (below) chooses
 * one from the file's bytes. */
#define KZ_HOST_TYPE_DETECT 0u
enum {
    KZ_HOST_TYPE_MPEG1_LAYER3_ID3V1 = 1706, /* "MPEG-1 audio - Layer 3, ID3v1.x" */
    KZ_HOST_TYPE_MPEG1_LAYER3_ID3V2 = 1707, /* "MPEG-1 audio - Layer 3, ID3v2.x" */
    KZ_HOST_TYPE_ID3V1 = 1708,              /* "ID3 Ver 1.x" */
    KZ_HOST_TYPE_ID3V2 = 1709,              /* "ID3 Ver 2.x" */
    KZ_HOST_TYPE_MPEG1_LAYER3 = 1710,       /* "MPEG-1 audio - Layer 3" */
    KZ_HOST_TYPE_MPEG1_LAYER1 = 1711,       /* "MPEG-1 audio - Layer 1" */
    KZ_HOST_TYPE_MPEG1_LAYER2 = 1712,       /* "MPEG-1 audio - Layer 2" */
    KZ_HOST_TYPE_MPEG2_LAYER1 = 1713,       /* "MPEG-2 audio - Layer 1" */
    KZ_HOST_TYPE_MPEG2_LAYER2 = 1714,       /* "MPEG-2 audio - Layer 2" */
    KZ_HOST_TYPE_MPEG2_LAYER3 = 1715        /* "MPEG-2 audio - Layer 3" */
};

/* ---- Read options --------------------------------------------------------- */
enum {
    KZ_HOST_READ_CODES = 1u   /* also hand over the raw character codes */
};

typedef struct kz_host_read_options {
    size_t struct_size;   /* sizeof(kz_host_read_options), set by _init */
    uint16_t file_type;   /* KZ_HOST_TYPE_*, or KZ_HOST_TYPE_DETECT; any other number
                             is passed to the module as it is and gives no type name */
    uint32_t block_limit; /* most bytes of memory for one frame body; a larger body
                             is skipped (truncated); 0: the file's size */
    uint32_t stop_every;  /* stop at every K-th frame break, save and restore; 0: never */
    uint64_t char_limit;  /* characters kept per file; 0: a bound from the file's size */
    unsigned flags;       /* KZ_HOST_READ_* */
    int directory;        /* a file's path, when relative, is opened from this open
                             directory (openat(2)), as a walk gives it; -1 (set by
                             _init): from the working directory */
} kz_host_read_options;

KZ_HOST_API void kz_host_read_options_init(kz_host_read_options* options);

/* ---- What a read delivers -------------------------------------------------- */
enum {
    KZ_HOST_ITEM_FIELD = 0,   /* a field: one ID3v2 frame or one ID3v1 field */
    KZ_HOST_ITEM_OUTSIDE = 1, /* text delivered outside every field (IPLS) */
    KZ_HOST_ITEM_FAILURE = 2  /* the module reported a failure: `tag` holds its code,
                                 KZ_HOST_FAILURE_TRAILER when the ID3v1 trailer could
                                 not be read whole */
};
#define KZ_HOST_FAILURE_TRAILER 9u

/* Raw character codes, with KZ_HOST_READ_CODES: each character as the
 * module delivered it (a byte, or a UTF-16 unit when KZ_HOST_CODE_UTF16 is
 * set), or a line break as KZ_HOST_CODE_SPECIAL | KZ_HOST_CODE_LINE_BREAK. */
#define KZ_HOST_CODE_VALUE 0xFFFFu
#define KZ_HOST_CODE_UTF16 0x10000u
#define KZ_HOST_CODE_SPECIAL 0x20000u
#define KZ_HOST_CODE_LINE_BREAK 5u

/* A string tag inside a field: a part of it the module marks, such as the
 * description of a user-defined field. */
typedef struct kz_host_string {
    uint32_t tag;           /* its tag number */
    size_t offset;          /* byte offset in the field's text where it stood */
    const char* text;       /* UTF-8, NUL-terminated; text_len excludes the NUL */
    size_t text_len;
    const uint32_t* codes;  /* null without KZ_HOST_READ_CODES */
    size_t code_count;
} kz_host_string;

typedef struct kz_host_field {
    size_t struct_size;     /* sizeof(kz_host_field) of the kit that made it */
    int kind;               /* KZ_HOST_ITEM_* */
    uint32_t tag;           /* tag number (the failure code for KZ_HOST_ITEM_FAILURE) */
    uint32_t number;        /* field number: 77 to 161 (kz_host_field_ident names it),
                               500 + n for TXXX and WXXX */
    const char* ident;      /* "TIT2", "TXXX", "WXXX", "TXXX/WXXX", "ID3v1 title",
                               "field N"; "" for outside text and failures */
    int id3v1;              /* 1: a field of the ID3v1 trailer */
    const char* description;/* user-defined fields: the first string's text; else null */
    size_t description_len;
    const char* text;       /* the value as UTF-8, string tags excluded; NUL-terminated,
                               but may hold NUL characters: use text_len.  Single-byte
                               characters are ISO-8859-1, UTF-16 surrogate pairs are
                               joined and an unpaired half becomes U+FFFD; a line
                               break and a 0x0A character are both "\n" */
    size_t text_len;
    const kz_host_string* strings; /* every string tag inside the field, in order */
    size_t string_count;
    const uint32_t* codes;  /* the value's raw codes (strings excluded), or null */
    size_t code_count;
} kz_host_field;

/* What the module answered when the file was opened. */
#define KZ_HOST_OPEN_TAGS 0     /* a tag to read */
#define KZ_HOST_OPEN_NO_TAGS 51 /* nothing to read */

/* File-level facts of one read. */
typedef struct kz_host_file_info {
    size_t struct_size;     /* set by kz_host_file_info_init */
    uint16_t file_type;     /* the type the file was opened with (KZ_HOST_TYPE_*) */
    int detected;           /* 1: file_type came from type detection */
    int audio;              /* 1: type detection found an MPEG audio frame; 0: it found
                               none, or the type was given */
    char type_name[32];     /* the type's name as the module gave it; "" for a number
                               outside KZ_HOST_TYPE_* */
    int32_t open_status;    /* KZ_HOST_OPEN_TAGS or KZ_HOST_OPEN_NO_TAGS */
    int end_seen;           /* the module signalled the end of its content */
    int truncated;          /* a limit (characters, block) cut the file short */
    int errno_value;        /* with KZ_HOST_ERROR_IO or _NOT_REGULAR: the errno of the
                               failed call (EISDIR for a directory) */
    uint64_t size;          /* bytes in the file or buffer */
    size_t field_count;     /* items delivered (fields, outside text, failures) */
} kz_host_file_info;

KZ_HOST_API void kz_host_file_info_init(kz_host_file_info* info);

/* Called for each item as soon as it is complete and its kind is known.  A
 * field is known to come from the ID3v1 trailer only when the end break
 * arrives with no frame break after it, so the fields since the last frame
 * break are held back until then, never more.  The pointers are valid only
 * during the call.  A non-zero return stops the read (KZ_HOST_ERROR_STOPPED). */
typedef int (*kz_host_visitor)(const kz_host_field* field, void* user);

/* Streaming reads.  `options` and `info` may be null; `info`, when given,
 * must have been set up with kz_host_file_info_init.  Returns KZ_HOST_OK,
 * KZ_HOST_NOTHING_TO_READ or an error; the items delivered before an error
 * (a read error in the middle of the file included) have reached the
 * visitor.  `info` is filled as the read goes: file_type, detected, audio,
 * type_name, open_status and size are set before the first call of the
 * visitor, the rest when the read returns. */
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
 *   u8 flags (1: end seen, 2: truncated, 4: type detected, 8: audio found),
 *   u8 type name length, type name bytes;
 *   then per item: u8 kind, u8 id3v1, u8 ident length, u8 0,
 *             u32 tag, u32 number,
 *             u32 description length (0xFFFFFFFF: none), u32 text length,
 *             ident bytes, description bytes, text bytes (UTF-8, no NUL)
 * String tags and codes are not packed. */
#define KZ_HOST_PACKED_NO_DESCRIPTION 0xFFFFFFFFu

/* ---- Tracing ----------------------------------------------------------------
 * For tools that show exactly what the module delivers (kzdump --trace): the
 * same read, with every call the module makes to its host handed over as it
 * arrives, under the module's own names, instead of being made into fields.
 * Paging, the limits and the runaway guards work as in the other reads. */
enum {
    KZ_HOST_CALL_OPENED = 0,         /* "VwStreamOpen" returned: args[0] its result
                                        (KZ_HOST_OPEN_*), type_name the type's name */
    KZ_HOST_CALL_CHAR = 1,           /* "SOOutChar": args[0] the character's code */
    KZ_HOST_CALL_SPECIAL = 2,        /* "SOOutSpecial": args[0] the code (5: line break) */
    KZ_HOST_CALL_BREAK = 5,          /* "SOOutBreak": args[0] the kind (11 after a frame,
                                        2 at the end), result the kit's answer */
    KZ_HOST_CALL_START_SECTION = 18, /* "SOStartSection" */
    KZ_HOST_CALL_FAILURE = 20,       /* "SOReportFailure": args[0] the failure code */
    KZ_HOST_CALL_BEGIN_TAG = 49,     /* "SOBeginTag": args[0] the kind (0xA0010004 a field,
                                        0x201C0000 a string), args[1] its number, args[2]
                                        the field number of its descriptor */
    KZ_HOST_CALL_END_TAG = 50,       /* "SOEndTag": args[0] the kind, args[1] the number */
    KZ_HOST_CALL_CHARSET = 90,       /* "SOSetCharSet": args[0] 0x00080101 single bytes,
                                        0x14B00000 UTF-16 */
    KZ_HOST_CALL_SECTION_FLAGS = 142 /* "SOSetSectionFlags" */
};

typedef struct kz_host_call {
    size_t struct_size;    /* sizeof(kz_host_call) of the kit that made it */
    uint16_t routine;      /* KZ_HOST_CALL_* */
    const char* name;      /* the module's name of the routine, as in the comments above */
    uint32_t args[3];      /* the arguments of the call, in order, the host's user pair
                              left out */
    int has_descriptor;    /* KZ_HOST_CALL_BEGIN_TAG: 0 when no descriptor came */
    uint32_t result;       /* KZ_HOST_CALL_BREAK: the status the kit answered */
    const char* type_name; /* KZ_HOST_CALL_OPENED: the type's name; "" otherwise */
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
 * A file's type is decided before it is opened.  These look at the first
 * MPEG audio frame header within 64 KiB after the ID3v2 tags (confirmed by
 * a second header where the first one's length says it should be, or by
 * the frame ending where the audio ends) and at the ID3v1 trailer:
 *   MPEG-1 Layer III: _MPEG1_LAYER3_ID3V2 with an ID3v2 tag, else
 *   _MPEG1_LAYER3_ID3V1 with an ID3v1 trailer, else _MPEG1_LAYER3;
 *   MPEG-1 Layer I, II: _MPEG1_LAYER1, _LAYER2; MPEG-2 and 2.5 Layer I, II,
 *   III: _MPEG2_LAYER1, _LAYER2, _LAYER3; no audio frame: _ID3V2 with an
 *   ID3v2 tag, else _ID3V1 with an ID3v1 trailer, else _MPEG1_LAYER3 (and
 *   *audio is 0).
 * `audio` may be null. */
KZ_HOST_API int kz_host_detect_file(const char* path, uint16_t* file_type, int* audio);
KZ_HOST_API int kz_host_detect_memory(const void* data, size_t size, uint16_t* file_type,
                                      int* audio);

/* ---- Field numbers ------------------------------------------------------------
 * The four-letter ID3v2.3/2.4 identifier of a field number and a short
 * English label for it ("TIT2", "Title" for 118), right for the ID3v1 field
 * of that number too; null for a number the module never delivers and for
 * user-defined fields (500 and up). */
KZ_HOST_API const char* kz_host_field_ident(uint32_t number);
KZ_HOST_API const char* kz_host_field_label(uint32_t number);
/* The field number of a frame the module reads, by its identifier: four
 * letters (ID3v2.3, 2.4) or three (ID3v2.2), upper case.  KZ_HOST_OK with
 * *number set (0 for the frames the module delivers without a number of
 * their own: IPLS, TXXX, WXXX and their ID3v2.2 forms), or
 * KZ_HOST_ERROR_ARGUMENT for an identifier the module does not read. */
KZ_HOST_API int kz_host_frame_field(const char* ident, uint32_t* number);

/* ---- Directory walks ------------------------------------------------------------
 * The files under a directory, depth first, names sorted byte-wise, each
 * subdirectory entered where its name sorts; one listing per open
 * directory is held at a time, so memory grows with depth, not with the
 * number of files.  Symbolic links to directories are not followed (so no
 * walk can loop) and are left out; other entries that are not directories
 * are given as files.  A directory that cannot be opened or read is given
 * as an entry with its errno, in its place, and the walk goes on. */
typedef struct kz_host_walk kz_host_walk;

typedef struct kz_host_walk_options {
    size_t struct_size;             /* sizeof(kz_host_walk_options), set by _init */
    const char* const* extensions;  /* keep only files whose name ends in "." and one of
                                       these (without the dot, any case) */
    size_t extension_count;         /* 0: every file */
    const char* const* excludes;    /* fnmatch(3) patterns: files and directories whose
                                       name matches one are left out, unreported */
    size_t exclude_count;
} kz_host_walk_options;

typedef struct kz_host_walk_entry {
    size_t struct_size;  /* sizeof(kz_host_walk_entry) of the kit that made it */
    const char* path;    /* the root and the names below it, joined by "/" */
    size_t path_len;
    int error;           /* 0: a file; else the errno with which the directory `path`
                            could not be opened or read */
    int directory;       /* a file's directory, open until the next kz_host_walk_next
                            (dup(2) it to keep it): read `name` from it with the read
                            option `directory`, sparing the lookup of the whole path */
    const char* name;    /* the file's name within that directory, the end of `path` */
} kz_host_walk_entry;

KZ_HOST_API void kz_host_walk_options_init(kz_host_walk_options* options);
/* Starts a walk of `root` (which is given as an error entry if it is not a
 * directory that can be read).  `options` may be null. */
KZ_HOST_API int kz_host_walk_new(const char* root, const kz_host_walk_options* options,
                                 kz_host_walk** walk);
/* The next entry: KZ_HOST_OK with *entry set (valid until the next call),
 * KZ_HOST_WALK_END, or KZ_HOST_ERROR_NO_MEMORY. */
KZ_HOST_API int kz_host_walk_next(kz_host_walk* walk, const kz_host_walk_entry** entry);
KZ_HOST_API void kz_host_walk_free(kz_host_walk* walk);

/* ---- Several files in one call ---------------------------------------------------
 * For bindings that pay for every foreign call (Python's ctypes gives up
 * its interpreter lock and takes it back at each one): the files of a list
 * read one after another by one reader, their outcomes in one buffer. */
typedef struct kz_host_batch kz_host_batch;

/* Reads the `count` files named in `paths` in turn, each as
 * kz_host_collect_file reads it, with the same options.  A file that cannot
 * be read is an entry of the batch, not a failure of the call: the status
 * is KZ_HOST_OK with *batch set, or KZ_HOST_ERROR_ARGUMENT (a null pointer,
 * bad options) or KZ_HOST_ERROR_NO_MEMORY with *batch null. */
KZ_HOST_API int kz_host_collect_files(kz_host_reader* reader, const char* const* paths,
                                      size_t count, const kz_host_read_options* options,
                                      kz_host_batch** batch);
/* The outcomes in one buffer, owned by the batch; per file, in the order of
 * `paths`, native byte order, no padding:
 *   i32 status (that of kz_host_collect_file; KZ_HOST_ERROR_NO_MEMORY when
 *       the result could not be packed),
 *   i32 errno (with KZ_HOST_ERROR_IO and _NOT_REGULAR; else 0),
 *   u32 packed size, then the packed result (layout above) of a file read
 *       with KZ_HOST_OK or KZ_HOST_NOTHING_TO_READ; size 0 otherwise. */
KZ_HOST_API const void* kz_host_batch_packed(const kz_host_batch* batch, size_t* size);
KZ_HOST_API void kz_host_batch_free(kz_host_batch* batch);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* KZ_HOST_H */
