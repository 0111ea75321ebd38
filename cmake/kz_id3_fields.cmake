# kz_id3_write_fields_header(TABLE HEADER) reads the module's frame table
# (id3v2/frame_table.h: one KZ_FRAME row a line, comment lines beginning with
# two slashes) and writes HEADER, the installed kz_id3_fields.h: the
# KZ_FIELD_* numbers, KzFieldIdent and KzFieldLabel, and KZ_ID3_FRAME_TABLE.
# The header's text depends on the table alone, and it is rewritten only when
# that text changes.  An edit of the table runs the configure step again.
function(kz_id3_write_fields_header table header)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${table})
  # Every line but the comments: a row, or a line that is none and is refused.
  file(STRINGS ${table} lines ENCODING UTF-8 REGEX "^([^/]|/[^/]|/$)")

  # CMAKE_MATCH_1 the identifier, 2 its ID3v2.2 form, 4 the field number,
  # 5 the label; the handling is for the walker alone.
  set(letter "[A-Z0-9]")
  set(ident_regex "\"(${letter}${letter}${letter}${letter})\"")
  set(short_form_regex "\"((${letter}${letter}${letter})?)\"")
  set(label_regex "\"([^\"\\]*)\"")
  set(handling_regex "[A-Za-z0-9]+\\([A-Za-z0-9]*\\)")
  set(row_regex "^KZ_FRAME\\(${ident_regex}, *${short_form_regex}, *([0-9]+), *${label_regex}, *${handling_regex}\\) *$")
  set(user_defined_base 500)
  set(idents "")
  set(macro_rows "")
  set(first "")
  set(last "")
  foreach(line IN LISTS lines)
    if(NOT line MATCHES "${row_regex}")
      message(FATAL_ERROR "${table}: not a frame table row: ${line}")
    endif()
    set(ident ${CMAKE_MATCH_1})
    set(short_form "${CMAKE_MATCH_2}")
    math(EXPR number "${CMAKE_MATCH_4}")
    set(label "${CMAKE_MATCH_5}")
    if(ident IN_LIST idents)
      message(FATAL_ERROR "${table}: ${ident} has two rows")
    endif()
    list(APPEND idents ${ident})
    list(APPEND macro_rows "    X(\"${ident}\", \"${short_form}\", ${number})")
    if(number EQUAL 0)
      if(NOT label STREQUAL "")
        message(FATAL_ERROR "${table}: ${ident} has a label but no field number")
      endif()
      continue()
    endif()
    if(number GREATER_EQUAL user_defined_base)
      message(FATAL_ERROR "${table}: ${ident}: field number ${number} is not below ${user_defined_base}")
    endif()
    if(label STREQUAL "")
      message(FATAL_ERROR "${table}: ${ident} has a field number but no label")
    endif()
    if(DEFINED ident_${number})
      message(FATAL_ERROR "${table}: ${ident_${number}} and ${ident} share field number ${number}")
    endif()
    set(ident_${number} ${ident})
    set(label_${number} "${label}")
    if(first STREQUAL "" OR number LESS first)
      set(first ${number})
    endif()
    if(last STREQUAL "" OR number GREATER last)
      set(last ${number})
    endif()
  endforeach()
  if(first STREQUAL "")
    message(FATAL_ERROR "${table}: no row with a field number")
  endif()

  set(enum_lines "")
  set(ident_lines "")
  set(label_lines "")
  foreach(number RANGE ${first} ${last})
    if(DEFINED ident_${number})
      string(APPEND enum_lines "    KZ_FIELD_${ident_${number}} = ${number},\n")
      string(APPEND ident_lines "        /* ${number} */ \"${ident_${number}}\",\n")
      string(APPEND label_lines "        /* ${number} */ \"${label_${number}}\",\n")
    else()
      string(APPEND ident_lines "        /* ${number} */ \"\",\n")
      string(APPEND label_lines "        /* ${number} */ 0,\n")
    endif()
  endforeach()
  list(JOIN macro_rows " \\\n" macro_lines)

  file(CONFIGURE OUTPUT ${header} @ONLY CONTENT "/*
 * kz_id3_fields.h - the field numbers of libkz_id3 and their names, written
 * by cmake/kz_id3_fields.cmake from the module's frame table
 * (id3v2/frame_table.h); included by kz_id3.h.
 */
#ifndef KZ_ID3_FIELDS_H
#define KZ_ID3_FIELDS_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern \"C\" {
#endif

/* ---- Field numbers ---------------------------------------------------------- */
/* The first word of the tag descriptor: which ID3 field a SO_TAG_FRAME
 * bracket holds.  ID3v2.2 frames share the number of their ID3v2.3/2.4
 * counterpart; the ID3v1 fields reuse TIT2, TPE1, TALB, TYER, COMM, TRCK and
 * TCON.  User-defined frames (TXXX, WXXX) carry the frame's number + 500. */
enum {
${enum_lines}    KZ_FIELD_FIRST = ${first},
    KZ_FIELD_LAST = ${last},
    KZ_FIELD_USER_DEFINED_BASE = ${user_defined_base} /* + the frame's number */
};

/* ---- Frame identifiers -------------------------------------------------------- */
/* X(identifier, ID3v2.2 form, field number) for every frame identifier the
 * module reads: the four-letter ID3v2.3/2.4 identifier, its three-letter
 * ID3v2.2 form (\"\" when ID3v2.2 has none) and the field number both forms
 * carry (0 for TXXX and WXXX, whose fields carry the frame's number + 500,
 * and for IPLS, which has no field of its own).  Identifiers not listed are
 * skipped. */
#define KZ_ID3_FRAME_TABLE(X) \\
${macro_lines}

/* ---- Field names ------------------------------------------------------------ */
/* The four-letter identifier of the ID3v2.3/2.4 frames that carry a field
 * number (KzFieldIdent(118) is \"TIT2\"; ID3v2.2 frames share the numbers of
 * their four-letter counterparts), and a short English label for it
 * (KzFieldLabel(118) is \"Title\"), right for the ID3v1 field of that number
 * too.  Null for a user-defined field (500 and up: the number alone does not
 * say TXXX or WXXX, and its description names it) and for any number the
 * module never delivers. */
static inline const char* KzFieldIdent(uint32_t fieldNumber) {
    static const char idents[KZ_FIELD_LAST - KZ_FIELD_FIRST + 1][5] = {
${ident_lines}    };
    if (fieldNumber < KZ_FIELD_FIRST || fieldNumber > KZ_FIELD_LAST) return NULL;
    return idents[fieldNumber - KZ_FIELD_FIRST][0] != '\\0' ? idents[fieldNumber - KZ_FIELD_FIRST]
                                                           : NULL;
}

static inline const char* KzFieldLabel(uint32_t fieldNumber) {
    static const char* const labels[KZ_FIELD_LAST - KZ_FIELD_FIRST + 1] = {
${label_lines}    };
    if (fieldNumber < KZ_FIELD_FIRST || fieldNumber > KZ_FIELD_LAST) return NULL;
    return labels[fieldNumber - KZ_FIELD_FIRST];
}

#ifdef __cplusplus
} /* extern \"C\" */
#endif

#endif /* KZ_ID3_FIELDS_H */
")
endfunction()
