/*
 * kz_id3._batch: reads a chunk of files through the host kit with the GIL
 * released once for the whole chunk, and turns packed results into Python
 * objects.
 *
 * Through ctypes every kit call gives the GIL up and takes it back.  With
 * two reader threads that costs a hand-over of the GIL, and the cache lines
 * of the interpreter's shared objects, for every file: about half the time
 * of a read.  Here the collect, the packed result and the free of a whole
 * chunk run without the GIL.  The kit's functions come as addresses from
 * the ctypes binding, which has found and loaded the library, so this module
 * does not link it.
 *
 * Turning a packed result into fields costs more than reading the file when
 * done in Python (a struct unpack, two slices and two decodes per field);
 * parse() does it here, in one pass.
 *
 * Optional: without this module the package does both in Python.
 */
#define PY_SSIZE_T_CLEAN
#include <Python.h>

#include <stddef.h>
#include <stdint.h>
#include <string.h>

typedef int (*CollectFile)(void* reader, const char* path, const void* options, void** result);
typedef const void* (*ResultPacked)(const void* result, size_t* size);
typedef void (*ResultFree)(void* result);

typedef struct {
    int status;
    void* result;
    const void* packed;
    size_t size;
} Slot;

/* collect_files(collect, packed, free, reader, options, paths) -> list
 * The first five are addresses (options may be 0), paths a tuple of bytes.
 * Each entry of the list is the packed result (bytes) of a file read with
 * status OK or NOTHING_TO_READ, or the kit's status (int) otherwise. */
static PyObject* CollectFiles(PyObject* self, PyObject* args) {
    (void)self;
    unsigned long long collectAddress, packedAddress, freeAddress, readerAddress, optionsAddress;
    PyObject* paths;
    if (!PyArg_ParseTuple(args, "KKKKKO!:collect_files", &collectAddress, &packedAddress,
                          &freeAddress, &readerAddress, &optionsAddress, &PyTuple_Type, &paths)) {
        return NULL;
    }
    const Py_ssize_t count = PyTuple_GET_SIZE(paths);
    const char** names = PyMem_Calloc((size_t)count + 1, sizeof *names);
    Slot* slots = PyMem_Calloc((size_t)count + 1, sizeof *slots);
    if (names == NULL || slots == NULL) {
        PyMem_Free(names);
        PyMem_Free(slots);
        return PyErr_NoMemory();
    }
    for (Py_ssize_t i = 0; i < count; ++i) {
        PyObject* path = PyTuple_GET_ITEM(paths, i);
        if (!PyBytes_Check(path)) {
            PyMem_Free(names);
            PyMem_Free(slots);
            return PyErr_Format(PyExc_TypeError, "collect_files: path %zd is not bytes", i);
        }
        names[i] = PyBytes_AS_STRING(path);
    }

    const CollectFile collect = (CollectFile)(uintptr_t)collectAddress;
    const ResultPacked packed = (ResultPacked)(uintptr_t)packedAddress;
    void* const reader = (void*)(uintptr_t)readerAddress;
    const void* const options = (const void*)(uintptr_t)optionsAddress;
    Py_BEGIN_ALLOW_THREADS
    for (Py_ssize_t i = 0; i < count; ++i) {
        Slot* slot = &slots[i];
        slot->status = collect(reader, names[i], options, &slot->result);
        if (slot->status == 0 || slot->status == 1) slot->packed = packed(slot->result, &slot->size);
    }
    Py_END_ALLOW_THREADS

    const ResultFree release = (ResultFree)(uintptr_t)freeAddress;
    PyObject* list = PyList_New(count);
    for (Py_ssize_t i = 0; i < count; ++i) {
        Slot* slot = &slots[i];
        if (list != NULL) {
            PyObject* item = slot->packed != NULL
                                 ? PyBytes_FromStringAndSize(slot->packed, (Py_ssize_t)slot->size)
                                 : PyLong_FromLong(slot->status);
            if (item == NULL) {
                Py_CLEAR(list);
            } else {
                PyList_SET_ITEM(list, i, item);
            }
        }
        if (slot->result != NULL) release(slot->result);
    }
    PyMem_Free(names);
    PyMem_Free(slots);
    return list;
}

/* ---- Packed results (layout in kz_host.h) ---------------------------------- */
enum { kHeadSize = 12, kItemSize = 20 };
static const uint32_t kNoDescription = 0xFFFFFFFFu;

static uint32_t U32(const unsigned char* bytes) {
    uint32_t value;
    memcpy(&value, bytes, sizeof value);
    return value;
}

/* Interned strings, made once: the keys and identifiers of every record are
 * the same objects, as in records built in Python (less memory, and pickle
 * sends each once). */
enum {
    kField, kOutside, kFailure, kTag, kNumber, kId, kDescription, kText, kId3v1,
    kPath, kStatus, kType, kFields, kEnd, kNames
};
static const char* const kNameTexts[kNames] = {
    "field", "outside", "failure", "tag", "field", "id", "description", "text", "id3v1",
    "path", "status", "type", "fields", "end"};
static PyObject* names[kNames];

/* ---- Strings that repeat ------------------------------------------------------
 * Identifiers ("TIT2") and type names: a few dozen in any collection, each
 * decoded and interned once and then found by its bytes, not decoded and
 * looked up in the interpreter's table of interned strings for every field.
 * Open addressing; when the table is half full, further strings are decoded
 * each time (the same objects all the same, through interning). */
enum { kCacheSlots = 1024, kCacheKey = 62 };
typedef struct {
    unsigned char used, length;
    char bytes[kCacheKey];
    PyObject* value;
} CacheSlot;
static CacheSlot cache[kCacheSlots];
static int cached;

/* The interned str of `length` bytes at `text`: ASCII (identifiers, whose
 * bytes are ASCII) or UTF-8 (type names), undecodable bytes replaced.  A
 * new reference, or NULL with an exception set. */
static PyObject* Repeated(const char* text, size_t length, int utf8) {
    CacheSlot* slot = NULL;
    if (length < kCacheKey) {
        uint32_t hash = 2166136261u ^ (uint32_t)utf8;
        for (size_t i = 0; i < length; ++i) hash = (hash ^ (unsigned char)text[i]) * 16777619u;
        for (uint32_t probe = hash;; ++probe) {
            slot = &cache[probe % kCacheSlots];
            if (!slot->used) break;
            /* The first byte of the key tells ASCII from UTF-8 entries. */
            if (slot->length == length + 1 && slot->bytes[0] == (char)utf8 &&
                memcmp(slot->bytes + 1, text, length) == 0) {
                Py_INCREF(slot->value);
                return slot->value;
            }
        }
        if (cached >= kCacheSlots / 2) slot = NULL;
    }
    PyObject* value = utf8 ? PyUnicode_DecodeUTF8(text, (Py_ssize_t)length, "replace")
                           : PyUnicode_DecodeASCII(text, (Py_ssize_t)length, "replace");
    if (value == NULL) return NULL;
    PyUnicode_InternInPlace(&value);
    if (slot != NULL) {
        slot->used = 1;
        slot->length = (unsigned char)(length + 1);
        slot->bytes[0] = (char)utf8;
        memcpy(slot->bytes + 1, text, length);
        Py_INCREF(value);
        slot->value = value;
        ++cached;
    }
    return value;
}

/* ---- Items ------------------------------------------------------------------- */
/* A new dict of `count` pairs, the keys from names[]; NULL with an exception
 * set when a value is NULL or on failure.  Takes no references. */
static PyObject* Dict(const int* keys, PyObject* const* values, int count) {
    for (int i = 0; i < count; ++i) {
        if (values[i] == NULL) return NULL;
    }
    PyObject* dict = PyDict_New();
    for (int i = 0; dict != NULL && i < count; ++i) {
        if (PyDict_SetItem(dict, names[keys[i]], values[i]) != 0) Py_CLEAR(dict);
    }
    return dict;
}

/* One item as Field's tuple, or as an entry of Tags.as_dict()'s "fields";
 * NULL with an exception set on failure. */
static PyObject* MakeItem(unsigned kind, uint32_t tag, uint32_t number, PyObject* ident,
                          PyObject* description, PyObject* text, int id3v1, int asDict) {
    PyObject* const flag = id3v1 ? Py_True : Py_False;
    if (!asDict) {
        PyObject* made = kind < 3 ? NULL : PyUnicode_FromFormat("%u", kind);
        if (kind >= 3 && made == NULL) return NULL;
        PyObject* tuple = Py_BuildValue("(OkkOOOO)", made != NULL ? made : names[kind],
                                        (unsigned long)tag, (unsigned long)number, ident,
                                        description, text, flag);
        Py_XDECREF(made);
        return tuple;
    }
    if (kind == 1) {
        static const int keys[] = {kOutside, kText};
        PyObject* const values[] = {Py_True, text};
        return Dict(keys, values, 2);
    }
    PyObject* tagObject = PyLong_FromUnsignedLong(tag);
    PyObject* dict;
    if (kind == 2) {
        static const int keys[] = {kFailure};
        PyObject* const values[] = {tagObject};
        dict = Dict(keys, values, 1);
    } else {
        PyObject* numberObject = PyLong_FromUnsignedLong(number);
        static const int keys[] = {kTag, kNumber, kId, kText, kId3v1};
        static const int describedKeys[] = {kTag, kNumber, kId, kDescription, kText, kId3v1};
        PyObject* const values[] = {tagObject, numberObject, ident, text, flag};
        PyObject* const describedValues[] = {tagObject, numberObject, ident, description, text,
                                             flag};
        dict = description == Py_None ? Dict(keys, values, 5)
                                      : Dict(describedKeys, describedValues, 6);
        Py_XDECREF(numberObject);
    }
    Py_XDECREF(tagObject);
    return dict;
}

static int CutShort(void) {
    PyErr_SetString(PyExc_ValueError, "parse: the packed result is cut short");
    return -1;
}

/* 1 when `only` holds the identifier or the field number, 0 when not, -1 on error. */
static int Keeps(PyObject* only, PyObject* ident, uint32_t number) {
    int found = PySet_Contains(only, ident);
    if (found != 0) return found;
    PyObject* numberObject = PyLong_FromUnsignedLong(number);
    if (numberObject == NULL) return -1;
    found = PySet_Contains(only, numberObject);
    Py_DECREF(numberObject);
    return found;
}

/* Appends the item at *offset to `list` unless `only` leaves it out, and
 * moves *offset past it.  0, or -1 with an exception set. */
static int ParseItem(const unsigned char* data, size_t size, size_t* offset, PyObject* only,
                     int asDicts, PyObject* list) {
    if (size - *offset < kItemSize) return CutShort();
    const unsigned char* item = data + *offset;
    const size_t identLength = item[2];
    const uint32_t tag = U32(item + 4), number = U32(item + 8);
    const uint32_t descriptionLength = U32(item + 12), textLength = U32(item + 16);
    const size_t descriptionBytes = descriptionLength == kNoDescription ? 0 : descriptionLength;
    const char* cursor = (const char*)item + kItemSize;
    if (size - *offset - kItemSize < identLength + descriptionBytes + (size_t)textLength) {
        return CutShort();
    }
    *offset += kItemSize + identLength + descriptionBytes + textLength;

    PyObject* ident = Repeated(cursor, identLength, 0);
    if (ident == NULL) return -1;
    cursor += identLength;
    PyObject* description = Py_None;
    Py_INCREF(description);
    if (descriptionLength != kNoDescription) {
        Py_SETREF(description, PyUnicode_DecodeUTF8(cursor, (Py_ssize_t)descriptionBytes, "replace"));
    }
    cursor += descriptionBytes;
    int keep = description == NULL ? -1 : only == Py_None ? 1 : Keeps(only, ident, number);
    if (keep == 1) {
        PyObject* value = PyUnicode_DecodeUTF8(cursor, (Py_ssize_t)textLength, "replace");
        PyObject* entry = value == NULL ? NULL
            : MakeItem(item[0], tag, number, ident, description, value, item[1] != 0, asDicts);
        keep = entry != NULL && PyList_Append(list, entry) == 0 ? 1 : -1;
        Py_XDECREF(entry);
        Py_XDECREF(value);
    }
    Py_DECREF(ident);
    Py_XDECREF(description);
    return keep < 0 ? -1 : 0;
}

/* The items of the packed result in `view`, as ParseItem makes them, or NULL
 * with an exception set. */
static PyObject* Items(const Py_buffer* view, PyObject* only, int asDicts) {
    const unsigned char* const data = view->buf;
    const size_t size = (size_t)view->len;
    if (size < kHeadSize || kHeadSize + (size_t)data[11] > size) {
        CutShort();
        return NULL;
    }
    const uint32_t count = U32(data);
    size_t offset = kHeadSize + (size_t)data[11];
    PyObject* list = PyList_New(0);
    for (uint32_t i = 0; i < count && list != NULL; ++i) {
        if (ParseItem(data, size, &offset, only, asDicts, list) != 0) Py_CLEAR(list);
    }
    return list;
}

/* parse(packed, only, as_dicts) -> list
 * The items of a packed result: Field's tuples, or with as_dicts the
 * entries of Tags.as_dict()'s "fields".  `only` is None or a frozenset of
 * identifiers and field numbers to keep. */
static PyObject* Parse(PyObject* self, PyObject* args) {
    (void)self;
    Py_buffer view;
    PyObject* only;
    int asDicts;
    if (!PyArg_ParseTuple(args, "y*Op:parse", &view, &only, &asDicts)) return NULL;
    PyObject* list = Items(&view, only, asDicts);
    PyBuffer_Release(&view);
    return list;
}

/* record(packed, path, only) -> dict
 * Tags.as_dict() of a packed result, in one go: "path", "status", "type",
 * "fields" (parse()'s dicts) and "end". */
static PyObject* Record(PyObject* self, PyObject* args) {
    (void)self;
    Py_buffer view;
    PyObject *path, *only;
    if (!PyArg_ParseTuple(args, "y*OO:record", &view, &path, &only)) return NULL;
    PyObject* fields = Items(&view, only, 1);
    PyObject* record = NULL;
    if (fields != NULL) {
        const unsigned char* const data = view.buf;
        int32_t status;
        memcpy(&status, data + 4, sizeof status);
        PyObject* statusObject = PyLong_FromLong(status);
        PyObject* type = Repeated((const char*)data + kHeadSize, data[11], 1);
        static const int keys[] = {kPath, kStatus, kType, kFields, kEnd};
        PyObject* const values[] = {path, statusObject, type, fields,
                                    data[10] & 1 ? Py_True : Py_False};
        record = Dict(keys, values, 5);
        Py_XDECREF(statusObject);
        Py_XDECREF(type);
        Py_DECREF(fields);
    }
    PyBuffer_Release(&view);
    return record;
}

/* idents(packed, only) -> list
 * The identifiers of the tag fields of a packed result (not outside text or
 * failures), in order, `only` as for parse(): what counting fields needs,
 * without making their texts or dicts. */
static PyObject* Idents(PyObject* self, PyObject* args) {
    (void)self;
    Py_buffer view;
    PyObject* only;
    if (!PyArg_ParseTuple(args, "y*O:idents", &view, &only)) return NULL;
    const unsigned char* const data = view.buf;
    const size_t size = (size_t)view.len;
    PyObject* list = NULL;
    if (size < kHeadSize || kHeadSize + (size_t)data[11] > size) {
        CutShort();
    } else {
        list = PyList_New(0);
        const uint32_t count = U32(data);
        size_t offset = kHeadSize + (size_t)data[11];
        for (uint32_t i = 0; i < count && list != NULL; ++i) {
            const unsigned char* item = data + offset;
            if (size - offset < kItemSize) {
                CutShort();
                Py_CLEAR(list);
                break;
            }
            const size_t identLength = item[2];
            const uint32_t descriptionLength = U32(item + 12), textLength = U32(item + 16);
            const size_t rest = identLength + (descriptionLength == kNoDescription ? 0
                                               : descriptionLength) + (size_t)textLength;
            if (size - offset - kItemSize < rest) {
                CutShort();
                Py_CLEAR(list);
                break;
            }
            offset += kItemSize + rest;
            if (item[0] != 0) continue;
            PyObject* ident = Repeated((const char*)item + kItemSize, identLength, 0);
            int keep = ident == NULL ? -1 : only == Py_None ? 1 : Keeps(only, ident, U32(item + 8));
            if (keep < 0 || (keep == 1 && PyList_Append(list, ident) != 0)) Py_CLEAR(list);
            Py_XDECREF(ident);
        }
    }
    PyBuffer_Release(&view);
    return list;
}

static PyMethodDef kMethods[] = {
    {"collect_files", CollectFiles, METH_VARARGS,
     "Reads files through the host kit with the GIL released (see the source)."},
    {"parse", Parse, METH_VARARGS, "The items of a packed result (see the source)."},
    {"record", Record, METH_VARARGS, "Tags.as_dict() of a packed result (see the source)."},
    {"idents", Idents, METH_VARARGS, "The identifiers of the fields of a packed result."},
    {NULL, NULL, 0, NULL},
};

static struct PyModuleDef kModule = {
    PyModuleDef_HEAD_INIT, "kz_id3._batch",
    "Reads a chunk of files through the host kit with the GIL released once.", -1, kMethods,
    NULL, NULL, NULL, NULL,
};

PyMODINIT_FUNC PyInit__batch(void) {
    for (int n = 0; n < kNames; ++n) {
        if (names[n] == NULL && (names[n] = PyUnicode_InternFromString(kNameTexts[n])) == NULL) {
            return NULL;
        }
    }
    return PyModule_Create(&kModule);
}
