/* A host as an integrator writes it against the installed package: it
 * includes <kz_id3.h>, has globals of its own named like common words, loads
 * the module from MODULE_PATH with dlopen and prints the first title (TIT2)
 * of the file named.  Built three ways by .ci/package. */
#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

#include <kz_id3.h>

const char* version = "consumer host 2.0";
int level = 30;

typedef struct FileStream {
    KzStream stream; /* first: the module passes its address back */
    FILE* file;
} FileStream;

typedef struct Host {
    char title[256];
    size_t length;
    int inTitle;
    int done;
} Host;

static int32_t Read(KzStream* stream, void* buffer, uint32_t count, uint32_t* countRead) {
    *countRead = (uint32_t)fread(buffer, 1, count, ((FileStream*)stream)->file);
    return 0;
}
static int32_t Seek(KzStream* stream, uint16_t origin, int32_t offset) {
    const int whence = origin == SO_SEEK_SET ? SEEK_SET : origin == SO_SEEK_CUR ? SEEK_CUR : SEEK_END;
    return fseek(((FileStream*)stream)->file, offset, whence) != 0;
}
static int32_t Tell(KzStream* stream, uint32_t* position) {
    *position = (uint32_t)ftell(((FileStream*)stream)->file);
    return 0;
}

static Host* HostOf(uint64_t user1) { return (Host*)(uintptr_t)user1; }

static void OutChar(uint16_t code, uint64_t user1, uint64_t user2) {
    Host* host = HostOf(user1);
    (void)user2;
    if (host->inTitle && host->length + 1 < sizeof host->title) host->title[host->length++] = (char)code;
}
static void BeginTag(uint32_t kind, uint32_t number, const KzTagDescriptor* descriptor,
                     uint64_t user1, uint64_t user2) {
    Host* host = HostOf(user1);
    (void)number, (void)user2;
    /* The first title only: the ID3v1 trailer repeats it. */
    host->inTitle = kind == SO_TAG_FRAME && descriptor->fieldNumber == KZ_FIELD_TIT2 && host->length == 0;
}
static void EndTag(uint32_t kind, uint32_t number, uint64_t user1, uint64_t user2) {
    (void)kind, (void)number, (void)user2;
    HostOf(user1)->inTitle = 0;
}
static uint32_t OutBreak(uint16_t kind, uint16_t zero, uint64_t user1, uint64_t user2) {
    (void)zero, (void)user2;
    if (kind == SO_BREAK_END) HostOf(user1)->done = 1;
    return 0;
}

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "%s: usage: host FILE.mp3\n", version);
        return 2;
    }
    void* module = dlopen(MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
    FileStream stream = {{0, Read, 0, Seek, Tell}, fopen(argv[1], "rb")};
    if (module == NULL || stream.file == NULL) {
        fprintf(stderr, "cannot load %s or open %s\n", MODULE_PATH, argv[1]);
        return 1;
    }
    /* ISO C converts no object pointer to a function pointer: copy it. */
    void* symbol = dlsym(module, "VwGetRtns");
    VwGetRtnsFn getRtns;
    memcpy(&getRtns, &symbol, sizeof getRtns);
    VwEntry table[VW_ENTRY_TABLE_SIZE];
    getRtns(table, (uint16_t)level);
    VwContext* context = ((VwAllocProcFn)table[VW_ENTRY_ALLOCPROC])();
    uint64_t local = 0;
    ((VwLocalUpFn)table[VW_ENTRY_LOCALUP])(0, &local, context);
    VwSetSoRtnFn setRoutine = (VwSetSoRtnFn)table[VW_ENTRY_SETSORTN];
    setRoutine(SO_ROUTINE_OUTCHAR, (SORoutine)OutChar, context);
    setRoutine(SO_ROUTINE_BEGINTAG, (SORoutine)BeginTag, context);
    setRoutine(SO_ROUTINE_ENDTAG, (SORoutine)EndTag, context);
    setRoutine(SO_ROUTINE_OUTBREAK, (SORoutine)OutBreak, context);
    Host host = {{0}, 0, 0, 0};
    ((VwSetUserFn)table[VW_ENTRY_SETUSER])((uint64_t)(uintptr_t)&host, 0, context);

    KzFileInfo info = {0, {0}, {0}};
    if (((VwStreamOpenFn)table[VW_ENTRY_STREAMOPEN])(&stream.stream, VW_FILETYPE_DEFAULT, 0, &info,
                                                     context) == VW_OPEN_OK) {
        ((VwStreamFn)table[VW_ENTRY_STREAMSECTION])(&stream.stream, context);
        while (!host.done) ((VwStreamFn)table[VW_ENTRY_STREAMREAD])(&stream.stream, context);
    }
    ((VwStreamCloseFn)table[VW_ENTRY_STREAMCLOSE])(&stream.stream, context);
    ((VwFreeProcFn)table[VW_ENTRY_FREEPROC])(context);
    fclose(stream.file);
    printf("TIT2: %.*s\n", (int)host.length, host.title);
    return 0;
}
