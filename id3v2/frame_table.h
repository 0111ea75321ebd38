// The frame table: every frame identifier the walker dispatches, once.
//
//   KZ_FRAME(identifier, ID3v2.2 form, field number, label, handling)
//
// identifier    the ID3v2.3/2.4 identifier, four letters
// ID3v2.2 form  its three-letter identifier, "" when ID3v2.2 has none
// field number  the number its field carries; 0 when the field is numbered
//               by the frame (TXXX, WXXX: the frame's number + 500) or the
//               frame has no field of its own (IPLS)
// label         a short English name of the field, "" when it has no number
// handling      Single(handler): a handler of its own
//               Shared(handler): a handler that serves several identifiers
//                 and receives the four-letter identifier, also for the
//                 three-letter form
//               Text(): EmitTextFrame, with the identifier as read
//               UrlLink(): EmitUrlLink, in a field the walker opens
//
// The walker (frame_walker.cpp) includes this file with its own KZ_FRAME.
// cmake/kz_id3_fields.cmake reads it at configure time and writes the
// installed header kz_id3_fields.h (KZ_FIELD_*, KzFieldIdent, KzFieldLabel,
// KZ_ID3_FRAME_TABLE) from it: one row a line, comments only on lines of
// their own that begin with two slashes, labels without quotes or
// backslashes.
KZ_FRAME("AENC", "CRA", 77, "Audio encryption", Single(EmitAudioEncryptionFrame))
KZ_FRAME("APIC", "", 78, "Attached picture", Single(EmitPictureFrame))
KZ_FRAME("ASPI", "", 79, "Audio seek point index", Single(EmitSeekPointIndexFrame))
KZ_FRAME("COMM", "COM", 80, "Comment", Shared(EmitCommentFrame))
KZ_FRAME("COMR", "", 81, "Commercial", Single(EmitCommercialFrame))
KZ_FRAME("ENCR", "", 82, "Encryption method registration", Shared(EmitRegistrationFrame))
KZ_FRAME("EQUA", "EQU", 83, "Equalisation", Single(EmitEqualisationFrame))
KZ_FRAME("EQU2", "", 84, "Equalisation (2)", Single(EmitEqualisation2Frame))
KZ_FRAME("ETCO", "ETC", 85, "Event timing codes", Single(EmitEventTimingFrame))
KZ_FRAME("GEOB", "GEO", 86, "General encapsulated object", Single(EmitEncapsulatedObjectFrame))
KZ_FRAME("GRID", "", 87, "Group identification registration", Shared(EmitRegistrationFrame))
KZ_FRAME("IPLS", "IPL", 0, "", Single(EmitInvolvedPeopleFrame))
KZ_FRAME("LINK", "", 89, "Linked information", Single(EmitLinkedInfoFrame))
KZ_FRAME("MLLT", "MLL", 91, "MPEG location lookup table", Single(EmitLocationTableFrame))
KZ_FRAME("OWNE", "", 92, "Ownership", Single(EmitOwnershipFrame))
KZ_FRAME("PRIV", "", 93, "Private", Single(EmitPrivateFrame))
KZ_FRAME("PCNT", "CNT", 94, "Play counter", Single(EmitPlayCounterFrame))
KZ_FRAME("POPM", "POP", 95, "Popularimeter", Single(EmitPopularimeterFrame))
KZ_FRAME("POSS", "", 96, "Position synchronisation", Single(EmitPositionSyncFrame))
KZ_FRAME("RBUF", "BUF", 97, "Recommended buffer size", Single(EmitBufferSizeFrame))
KZ_FRAME("RVAD", "", 98, "Relative volume adjustment", Single(EmitVolumeAdjustFrame))
KZ_FRAME("RVA2", "", 99, "Relative volume adjustment (2)", Single(EmitVolumeAdjust2Frame))
KZ_FRAME("RVRB", "REV", 100, "Reverb", Single(EmitReverbFrame))
KZ_FRAME("SEEK", "", 101, "Seek", Single(EmitSeekFrame))
KZ_FRAME("SYLT", "SLT", 103, "Synchronised lyrics", Single(EmitSyncedLyricsFrame))
KZ_FRAME("TALB", "TAL", 105, "Album", Text())
KZ_FRAME("TBPM", "TBP", 106, "BPM", Text())
KZ_FRAME("TCOM", "TCM", 107, "Composer", Text())
KZ_FRAME("TCON", "TCO", 108, "Genre", Text())
KZ_FRAME("TCOP", "TCR", 109, "Copyright", Text())
KZ_FRAME("TDAT", "TDA", 110, "Date", Text())
KZ_FRAME("TDLY", "TDI", 111, "Playlist delay", Text())
KZ_FRAME("TENC", "TEN", 112, "Encoded by", Text())
KZ_FRAME("TEXT", "TXT", 113, "Lyricist", Text())
KZ_FRAME("TFLT", "TFT", 114, "File type", Text())
KZ_FRAME("TIME", "TIM", 115, "Time", Text())
KZ_FRAME("TIPL", "", 116, "Involved people", Text())
KZ_FRAME("TIT1", "TT1", 117, "Content group", Text())
KZ_FRAME("TIT2", "TT2", 118, "Title", Text())
KZ_FRAME("TIT3", "TT3", 119, "Subtitle", Text())
KZ_FRAME("TKEY", "TKE", 120, "Initial key", Text())
KZ_FRAME("TLAN", "TLA", 121, "Language", Text())
KZ_FRAME("TLEN", "TLE", 122, "Length", Text())
KZ_FRAME("TMCL", "", 123, "Musician credits", Text())
KZ_FRAME("TMOO", "", 124, "Mood", Text())
KZ_FRAME("TMED", "TMT", 125, "Media type", Text())
KZ_FRAME("TOAL", "TOT", 126, "Original album", Text())
KZ_FRAME("TOFN", "TOF", 127, "Original filename", Text())
KZ_FRAME("TOLY", "TOL", 128, "Original lyricist", Text())
KZ_FRAME("TOPE", "TOA", 129, "Original artist", Text())
KZ_FRAME("TORY", "TOR", 130, "Original release year", Text())
KZ_FRAME("TOWN", "", 131, "File owner", Text())
KZ_FRAME("TPE1", "TP1", 132, "Artist", Text())
KZ_FRAME("TPE2", "TP2", 133, "Band", Text())
KZ_FRAME("TPE3", "TP3", 134, "Conductor", Text())
KZ_FRAME("TPE4", "TP4", 135, "Remixed by", Text())
KZ_FRAME("TPOS", "TPA", 136, "Part of set", Text())
KZ_FRAME("TPRO", "", 137, "Produced notice", Text())
KZ_FRAME("TPUB", "TPB", 138, "Publisher", Text())
KZ_FRAME("TRCK", "TRK", 139, "Track", Text())
KZ_FRAME("TRDA", "TRD", 140, "Recording dates", Text())
KZ_FRAME("TRSN", "", 141, "Radio station", Text())
KZ_FRAME("TRSO", "", 142, "Radio station owner", Text())
KZ_FRAME("TSIZ", "TSI", 143, "Size", Text())
KZ_FRAME("TSRC", "TRS", 144, "ISRC", Text())
KZ_FRAME("TSOA", "", 145, "Album sort order", Text())
KZ_FRAME("TSOP", "", 146, "Performer sort order", Text())
KZ_FRAME("TSOT", "", 147, "Title sort order", Text())
KZ_FRAME("TSSE", "TSS", 148, "Encoder settings", Text())
KZ_FRAME("TSST", "", 149, "Set subtitle", Text())
KZ_FRAME("TYER", "TYE", 150, "Year", Text())
KZ_FRAME("TXXX", "TXX", 0, "", Shared(EmitUserDefinedFrame))
KZ_FRAME("UFID", "UFI", 151, "Unique file identifier", Single(EmitUniqueIdFrame))
KZ_FRAME("USER", "", 152, "Terms of use", Single(EmitTermsOfUseFrame))
KZ_FRAME("USLT", "ULT", 153, "Lyrics", Shared(EmitCommentFrame))
KZ_FRAME("WCOM", "WCM", 154, "Commercial information URL", UrlLink())
KZ_FRAME("WCOP", "WCP", 155, "Copyright URL", UrlLink())
KZ_FRAME("WOAF", "WAF", 156, "Audio file URL", UrlLink())
KZ_FRAME("WOAR", "WAR", 157, "Artist URL", UrlLink())
KZ_FRAME("WOAS", "WAS", 158, "Audio source URL", UrlLink())
KZ_FRAME("WORS", "", 159, "Radio station URL", UrlLink())
KZ_FRAME("WPAY", "", 160, "Payment URL", UrlLink())
KZ_FRAME("WPUB", "WPB", 161, "Publisher URL", UrlLink())
KZ_FRAME("WXXX", "WXX", 0, "", Shared(EmitUserDefinedFrame))
