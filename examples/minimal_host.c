/* minimal_host FILE... - a complete host of the ID3 filter module as the host
 * guide describes it, in strict C11 (and C++17).  The module: $KZ_ID3_MODULE,
 * else -DKZ_ID3_MODULE_PATH="...", else libkz_id3.so from the library path.
 * Prints "FILE: type name", then "  IDENT: text" per field in UTF-8 (control
 * characters as \xNN, a backslash doubled).  Exit status 1 or 2 on errors. */
#include <ctype.h>
#include <dlfcn.h>
#include <errno.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kz_id3.h"
#ifndef KZ_ID3_MODULE_PATH
#define KZ_ID3_MODULE_PATH "libkz_id3.so"
#endif

typedef struct Text { char* data; size_t length, capacity; } Text;
/* Appends one character as UTF-8, kept printable. */
static void AppendCodePoint(Text* text, uint32_t cp) {
    static const unsigned char lead[] = {0, 0, 0xC0, 0xE0, 0xF0};
    char out[8];
    int n = cp < 0x80 ? 1 : cp < 0x800 ? 2 : cp < 0x10000 ? 3 : 4;
    if (cp < 0x20 || (cp >= 0x7F && cp <= 0x9F)) {
        n = snprintf(out, sizeof out, "\\x%02X", (unsigned)cp);
    } else if (cp == '\\') {
        n = snprintf(out, sizeof out, "\\\\");
    } else {
        for (int i = n - 1; i > 0; --i, cp >>= 6) out[i] = (char)(0x80 | (cp & 0x3F));
        out[0] = (char)(lead[n] | cp);
    }
    if (text->length + (size_t)n > text->capacity) {
        text->capacity = text->capacity * 2 + 64;
        if ((text->data = (char*)realloc(text->data, text->capacity)) == NULL) abort();
    }
    memcpy(text->data + text->length, out, (size_t)n);
    text->length += (size_t)n;
}

/* The item (field, or text outside any field) last opened.  A field followed
 * by a frame break is an ID3v2 field; one followed by another field or by the
 * end break is an ID3v1 field: so each is printed when the next call comes. */
enum { NO_ITEM, ITEM_OPEN, ITEM_HELD };
typedef struct Host {
    const char* path;
    int item, inString, stringClosed, hasDescription, descriptionUtf16, valueUtf16, utf16;
    int breaks, ended; /* breaks received in this read call; the end break received */
    uint32_t number, highSurrogate; /* number 0: text outside any field */
    Text description, text;
} Host;

/* Every routine receives the user pair last: here (host, 0). */
#define HOST(user1, user2) ((void)(user2), (Host*)(uintptr_t)(user1))
/* The text being built: the description inside a string bracket, else the
 * value.  UTF-16 units become code points: a high surrogate waits for the
 * low one that must follow it. */
static Text* Target(Host* h) { return h->inString ? &h->description : &h->text; }
static void EndOfText(Host* h) { /* a pending high surrogate becomes U+FFFD */
    if (h->highSurrogate != 0) AppendCodePoint(Target(h), 0xFFFD);
    h->highSurrogate = 0;
}
static void AppendCode(Host* h, uint16_t code) {
    if (h->highSurrogate != 0 && h->utf16 && code >= 0xDC00 && code <= 0xDFFF) {
        AppendCodePoint(Target(h), 0x10000 + ((h->highSurrogate - 0xD800) << 10) + (code - 0xDC00));
        h->highSurrogate = 0;
        return;
    }
    EndOfText(h); /* a high surrogate not followed by its low one */
    if (h->utf16 && code >= 0xD800 && code <= 0xDBFF)
        h->highSurrogate = code;
    else /* a low surrogate without its high one becomes U+FFFD */
        AppendCodePoint(Target(h), h->utf16 && code >= 0xD800 && code <= 0xDFFF ? 0xFFFD : code);
}

#define SHOWN(t) (int)(t).length, (t).length ? (t).data : ""
static void PrintItem(Host* h, int id3v1) {
    const char* ident = KzFieldIdent(h->number);
    char name[32];
    if (h->item == NO_ITEM) return;
    if (h->item == ITEM_OPEN) EndOfText(h);
    if (h->number == 0) {
        ident = "(outside any field)";
    } else if (id3v1 && KzFieldLabel(h->number) != NULL) { /* "ID3v1 title" */
        int n = snprintf(name, sizeof name, "ID3v1 %s", KzFieldLabel(h->number));
        for (int k = 6; k < n; ++k) name[k] = (char)tolower((unsigned char)name[k]);
        ident = name;
    } else if (h->number >= KZ_FIELD_USER_DEFINED_BASE) { /* only TXXX values are UTF-16 */
        ident = h->valueUtf16 ? "TXXX" : h->descriptionUtf16 ? "WXXX" : "TXXX/WXXX";
    } else if (ident == NULL) { /* a number the module never delivers */
        snprintf(name, sizeof name, "field %u", (unsigned)h->number), ident = name;
    }
    printf("  %s", ident);
    if (h->hasDescription) printf(" \"%.*s\"", SHOWN(h->description));
    printf(":%s%.*s\n", h->text.length ? " " : "", SHOWN(h->text));
    h->item = NO_ITEM;
}

static void OpenItem(Host* h, uint32_t number) {
    PrintItem(h, 1);
    h->item = ITEM_OPEN;
    h->number = number;
    h->inString = h->stringClosed = h->hasDescription = h->descriptionUtf16 = h->valueUtf16 = 0;
    h->description.length = h->text.length = h->highSurrogate = 0;
}

static void OnChar(uint16_t code, uint64_t user1, uint64_t user2) {
    Host* h = HOST(user1, user2);
    if (h->item != ITEM_OPEN) OpenItem(h, 0);
    AppendCode(h, code);
}

static void OnSpecial(uint16_t special, uint64_t user1, uint64_t user2) {
    if (special == SO_SPECIAL_LINEBREAK) OnChar('\n', user1, user2);
}

static void OnCharSet(uint32_t charset, uint64_t user1, uint64_t user2) {
    Host* h = HOST(user1, user2);
    h->utf16 = charset == SO_CHARSET_UTF16;
    if (h->utf16 && h->item == ITEM_OPEN && h->inString) h->descriptionUtf16 = 1;
    else if (h->utf16 && h->item == ITEM_OPEN && h->stringClosed) h->valueUtf16 = 1;
}

static void OnBeginTag(uint32_t kind, uint32_t number, const KzTagDescriptor* descriptor,
                       uint64_t user1, uint64_t user2) {
    Host* h = HOST(user1, user2);
    (void)number; /* the tag number: the field number stays the same across pages */
    if (kind == SO_TAG_FRAME) OpenItem(h, descriptor->fieldNumber); /* valid in this call */
    if (kind == SO_TAG_STRING && h->item == ITEM_OPEN) h->inString = h->hasDescription = 1;
}

static void OnEndTag(uint32_t kind, uint32_t number, uint64_t user1, uint64_t user2) {
    Host* h = HOST(user1, user2);
    (void)number; /* SO_TAG_STRING_END_NUMBER on a string tag */
    if (h->item != ITEM_OPEN) return;
    EndOfText(h);
    if (kind == SO_TAG_FRAME) h->item = ITEM_HELD;
    if (kind == SO_TAG_STRING) h->stringClosed = 1;
    h->inString = 0;
}

static uint32_t OnBreak(uint16_t kind, uint16_t zero, uint64_t user1, uint64_t user2) {
    Host* h = HOST(user1, user2);
    (void)zero;
    ++h->breaks;
    h->ended = kind == SO_BREAK_END;
    PrintItem(h, h->ended);
    return 0; /* go on: this host never stops a read call */
}

static void OnFailure(uint32_t failure, uint64_t user1, uint64_t user2) { /* 9: ID3v1 trailer */
    fprintf(stderr, "minimal_host: %s: failure %u reported by the module\n",
            HOST(user1, user2)->path, (unsigned)failure);
}

/* The stream: a FILE* that refuses to move outside the file.  The module's
 * record comes first, so the pointer the module passes is the host's too. */
typedef struct FileStream { KzStream base; FILE* file; long size; } FileStream;

static int32_t StreamRead(KzStream* s, void* buffer, uint32_t count, uint32_t* countRead) {
    *countRead = (uint32_t)fread(buffer, 1, count, ((FileStream*)s)->file); /* short at the end */
    return 0;
}

static int32_t StreamSeek(KzStream* s, uint16_t origin, int32_t offset) {
    FileStream* fs = (FileStream*)s;
    long base = origin == SO_SEEK_SET ? 0 : origin == SO_SEEK_CUR ? ftell(fs->file)
              : origin == SO_SEEK_END ? fs->size : -1;
    if (base < 0 || base + offset < 0 || base + offset > fs->size) return 1; /* refused */
    return fseek(fs->file, base + offset, SEEK_SET) == 0 ? 0 : 1;
}

static int32_t StreamTell(KzStream* s, uint32_t* position) {
    long at = ftell(((FileStream*)s)->file);
    if (at >= 0) *position = (uint32_t)at;
    return at < 0;
}

/* ISO C cannot convert dlsym's object pointer to a function pointer: copy its
 * bytes.  dlsym also searches the module's own libraries: libkz_sys.so. */
static int LookUp(void* module, const char* name, void* function, size_t size) {
    void* symbol = module != NULL ? dlsym(module, name) : NULL;
    if (symbol != NULL) memcpy(function, &symbol, size);
    return symbol != NULL;
}

static VwEntry entries[VW_ENTRY_TABLE_SIZE]; /* one table per process, filled once */
#define ENTRY(type, index) ((type)entries[index]) /* an entry in its typed form */
static void (*setBlockLimit)(uint32_t bytes); /* KzSysSetBlockLimit, from libkz_sys.so */

static int ReadFile(VwContext* ctx, Host* host, const char* path) {
    FileStream fs = {{NULL, StreamRead, NULL, StreamSeek, StreamTell}, NULL, 0};
    fs.file = fopen(path, "rb");
    if (fs.file == NULL || fseek(fs.file, 0, SEEK_END) != 0 || (fs.size = ftell(fs.file)) < 0 ||
        fs.size > (long)UINT32_MAX || fseek(fs.file, 0, SEEK_SET) != 0) {
        fprintf(stderr, "minimal_host: %s: %s\n", path,
                fs.file ? "not a file under 4 GiB" : strerror(errno));
        if (fs.file != NULL) fclose(fs.file);
        return 1;
    }
    setBlockLimit((uint32_t)fs.size); /* no frame body is larger than its file */
    host->path = path;
    host->item = host->utf16 = host->ended = 0;
    KzFileInfo info;
    memset(&info, 0, sizeof info);
    int32_t status = ENTRY(VwStreamOpenFn, VW_ENTRY_STREAMOPEN)(&fs.base, VW_FILETYPE_DEFAULT, 0,
                                                                &info, ctx);
    printf("%s: %s%s\n", path, info.typeName, status == VW_OPEN_OK ? "" : ": no tags");
    if (status == VW_OPEN_OK) {
        ENTRY(VwStreamFn, VW_ENTRY_STREAMSECTION)(&fs.base, ctx);
        /* Read calls until the end break.  A call ends at a frame break the
         * host answered non-zero or at the end break (this host never stops
         * one, so one call does); a call with no break at all is stuck. */
        do {
            host->breaks = 0;
            ENTRY(VwStreamFn, VW_ENTRY_STREAMREAD)(&fs.base, ctx);
        } while (!host->ended && host->breaks != 0);
    }
    ENTRY(VwStreamCloseFn, VW_ENTRY_STREAMCLOSE)(&fs.base, ctx);
    int failed = ferror(fs.file) || (status == VW_OPEN_OK && !host->ended);
    if (failed) fprintf(stderr, "minimal_host: %s: not read to the end\n", path);
    fclose(fs.file);
    return failed;
}

int main(int argc, char** argv) {
    const char* path = getenv("KZ_ID3_MODULE") ? getenv("KZ_ID3_MODULE") : KZ_ID3_MODULE_PATH;
    void* module = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    VwGetRtnsFn getRtns;
    if (!LookUp(module, "VwGetRtns", &getRtns, sizeof getRtns) ||
        !LookUp(module, "KzSysSetBlockLimit", &setBlockLimit, sizeof setBlockLimit)) {
        fprintf(stderr, "minimal_host: cannot use the module: %s\n", dlerror());
        return 2;
    }
    getRtns(entries, 30); /* interface level 30: every entry the module has */
    int entry = VW_ENTRY_STREAMOPEN;
    while (entry <= VW_ENTRY_STREAMCLOSE && entries[entry] != NULL) ++entry;
    VwContext* ctx = NULL; /* one context per thread */
    if (entry > VW_ENTRY_STREAMCLOSE) ctx = ENTRY(VwAllocProcFn, VW_ENTRY_ALLOCPROC)();
    if (ctx == NULL) {
        fprintf(stderr, "minimal_host: %s: empty entry %d or no context\n", path, entry);
        return 2;
    }
    uint64_t local = 0;
    ENTRY(VwLocalUpFn, VW_ENTRY_LOCALUP)(0, &local, ctx);
    const struct { uint16_t id; SORoutine routine; } routines[] = {
        {SO_ROUTINE_OUTCHAR, (SORoutine)OnChar},      {SO_ROUTINE_OUTSPECIAL, (SORoutine)OnSpecial},
        {SO_ROUTINE_OUTBREAK, (SORoutine)OnBreak},    {SO_ROUTINE_BEGINTAG, (SORoutine)OnBeginTag},
        {SO_ROUTINE_ENDTAG, (SORoutine)OnEndTag},     {SO_ROUTINE_SETCHARSET, (SORoutine)OnCharSet},
        {SO_ROUTINE_REPORTFAILURE, (SORoutine)OnFailure}};
    for (size_t i = 0; i < sizeof routines / sizeof routines[0]; ++i)
        ENTRY(VwSetSoRtnFn, VW_ENTRY_SETSORTN)(routines[i].id, routines[i].routine, ctx);
    static Host host; /* all zero */
    ENTRY(VwSetUserFn, VW_ENTRY_SETUSER)((uint64_t)(uintptr_t)&host, 0, ctx);
    int failed = 0;
    for (int i = 1; i < argc; ++i) failed |= ReadFile(ctx, &host, argv[i]);
    ENTRY(VwFreeProcFn, VW_ENTRY_FREEPROC)(ctx);
    free(host.description.data);
    free(host.text.data);
    dlclose(module);
    return failed;
}
