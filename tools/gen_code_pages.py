#!/usr/bin/env python3
"""Generates Norvane's code-page tables and the code-page name hashes.

    python3 tools/gen_code_pages.py [--out-dir norvane/text]

writes norvane/text/code_page_tables_generated.cpp (the fourteen Windows code pages 874, 932, 936,
949, 950 and 1250-1258 in the library's table layout) and norvane/text/code_page_names_generated.cpp
(the 255 name hashes behind KD_GetCodePageFromStringA). Both files are committed; the build does
not run Python.

The mappings come from the codecs that ship with Python (cp874, cp932, gbk, cp949, cp950,
cp1250..cp1258). The reference is Microsoft's published table of each page (the "bytes to Unicode"
list that has one line per defined code): where a codec differs from it, ADJUSTMENTS below adds or
removes the entries, each with the reason.

Table layout (see code_page.h for the reader's side):
  - map header, 36 bytes;
  - code to Unicode: index 1 (256 32-bit entries), index 2 (32-bit range entries: first trail byte,
    range type, byte offset of the range's data) and a byte data area whose range offsets must stay
    below 64 KiB. A single byte holds its Unicode value in bits 16..31 (0xFEFF when undefined); a
    lead byte holds its first range's index in bits 16..31 and its range count in bits 0..15.
    Ranges: type 1 = one 16-bit value per trail byte (0xFEFF for holes), type 2 = 16-bit base plus
    the position, type 4 = 16-bit base followed by one byte per position added to it. A range ends
    where the next begins, so every run of undefined trail bytes after a range of type 2 or 4, and
    the tail after the last defined trail byte, is covered by a type-1 range pointing at a shared
    block of 256 x 0xFEFF at the start of the data area;
  - Unicode to code: records (first, last, type, offset in 16-bit units) sorted by first value and
    16-bit data; the record count is the index of the last record searched, so one sentinel record
    {0xFFFF, 0xFFFF, type 0} follows the real ones (type 0 answers "not mapped", 0xFFFF).
"""

import argparse
import codecs
import os
import sys

PAGES = [874, 932, 936, 949, 950, 1250, 1251, 1252, 1253, 1254, 1255, 1256, 1257, 1258]
CODEC = {936: "gbk"}  # every other page: "cpNNN"

# Lead bytes of the double-byte pages, as the published tables list them ("DBCS LEAD BYTE"). Lead
# bytes whose codes are all user-defined (932: F0-F9; 949: C9, FE; 950: 81-A0, C7, C8, FA-FE) have
# no mapping but stay lead bytes: they consume a trail byte.
LEAD_BYTES = {
    932: list(range(0x81, 0xA0)) + list(range(0xE0, 0xFD)),
    936: list(range(0x81, 0xFF)),
    949: list(range(0x81, 0xFF)),
    950: list(range(0x81, 0xFF)),
}

# Differences between Python's codecs and the published Windows tables.
#   ("add", code, unicode): the codec lacks a mapping the Windows page has.
#   ("drop", first, last): the codec maps codes the published table leaves undefined.
ADJUSTMENTS = {
    # Python's gbk predates the euro; Windows code page 936 maps the single byte 0x80 to U+20AC.
    936: [("add", 0x80, 0x20AC)],
    # Code page 932's user-defined rows F040-F9FC are lead/trail pairs on Windows, mapped in code
    # order to the private-use area U+E000-U+E757 (188 codes a row), and its single bytes 0x80,
    # 0xA0 and 0xFD-0xFF read as U+0080 and U+F8F0-U+F8F3. The published table leaves them out,
    # but Windows converts them so (Python's cp932 agrees on all of them, glibc on the rows): they
    # are kept, so that such text turns into one character per code, not a default and a stray byte.
    # Python's cp950 (Big5 plus Microsoft's additions) maps C6A1-C7FC to the ETEN extensions (kana,
    # Cyrillic, ...). In Windows code page 950, C6A1-C8FE is user-defined: Windows maps it in code
    # order to the private-use area U+F6B1-U+F848 (glibc's BIG5 agrees), which replaces them.
    950: [("drop", 0xC6A1, 0xC8FE)] + [("add", code, 0xF6B1 + i) for i, code in enumerate(
        lead << 8 | trail for lead in (0xC6, 0xC7, 0xC8)
        for trail in list(range(0x40, 0x7F)) + list(range(0xA1, 0xFF)) if (lead << 8 | trail) >= 0xC6A1)],
}


def decode_one(codec, data):
    try:
        text = data.decode(codec)
    except UnicodeDecodeError:
        return None
    return ord(text) if len(text) == 1 else None


def code_to_unicode(page):
    """Returns {code: unicode} for the page: single bytes, and lead/trail pairs as lead << 8 | trail."""
    codec = CODEC.get(page, "cp%d" % page)
    codecs.lookup(codec)
    leads = set(LEAD_BYTES.get(page, []))
    mapping = {}
    for b in range(256):
        if b in leads:
            for t in range(256):
                u = decode_one(codec, bytes([b, t]))
                if u is not None:
                    mapping[b << 8 | t] = u
        else:
            u = decode_one(codec, bytes([b]))
            if u is not None:
                mapping[b] = u
    for adj in ADJUSTMENTS.get(page, []):
        if adj[0] == "add":
            assert adj[1] not in mapping, "page %d already maps %#x" % (page, adj[1])
            mapping[adj[1]] = adj[2]
        else:
            dropped = [c for c in mapping if adj[1] <= c <= adj[2]]
            assert dropped, "page %d: nothing to drop in %#x-%#x" % (page, adj[1], adj[2])
            for c in dropped:
                del mapping[c]
    for c, u in mapping.items():
        assert 0 <= u <= 0xFFFF and u != 0xFEFF, (page, c, u)
    for b in range(0x80):
        assert mapping.get(b) == b, "page %d does not keep ASCII at %#x" % (page, b)
    return mapping


def unicode_to_code(page, mapping):
    """Returns {unicode: code}; a character reached from several codes takes the codec's own choice."""
    codec = CODEC.get(page, "cp%d" % page)
    by_unicode = {}
    for c, u in mapping.items():
        by_unicode.setdefault(u, []).append(c)
    result = {}
    for u, codes in by_unicode.items():
        choice = min(codes)
        if len(codes) > 1:
            try:
                encoded = int.from_bytes(chr(u).encode(codec), "big")
            except UnicodeEncodeError:
                encoded = None
            if encoded in codes:
                choice = encoded
        result[u] = choice
    return result


INF = float("inf")


def split_trail_ranges(values):
    """values: 256 entries (unicode or None) for one lead byte's trail bytes.

    Returns ranges (first trail, type, payload) where payload is a list of 16-bit values (type 1),
    a base (type 2) or (base, bytes) (type 4), with the least data plus index cost."""
    mapped = [t for t in range(256) if values[t] is not None]
    if not mapped:
        return [(0, 1, None)]  # one range over the shared 0xFEFF block
    first, last = mapped[0], mapped[-1]
    end = last + 1
    cost = [INF] * (end + 1)
    choice = [None] * (end + 1)
    cost[end] = 0
    for p in range(end - 1, first - 1, -1):
        best, pick = INF, None
        if values[p] is None:
            q = p + 1
            while values[q] is None:
                q += 1
            c = 4 + cost[q]
            if c < best:
                best, pick = c, (q, 0)
        for q in range(p + 1, end + 1):  # type 1: 2 bytes per position
            c = 4 + 2 * (q - p) + cost[q]
            if c < best:
                best, pick = c, (q, 1)
        if values[p] is not None:
            q = p + 1
            while q < end and values[q] is not None and values[q] == values[p] + (q - p):
                q += 1
            for r in range(p + 1, q + 1):  # type 2: a 2-byte base
                c = 4 + 2 + cost[r]
                if c < best:
                    best, pick = c, (r, 2)
            lo = hi = values[p]
            q = p + 1
            while q < end and values[q] is not None:
                lo, hi = min(lo, values[q]), max(hi, values[q])
                if hi - lo > 255:
                    break
                q += 1
            lo = hi = values[p]
            for r in range(p + 1, q + 1):  # type 4: base and one byte per position
                lo, hi = min(lo, values[r - 1]), max(hi, values[r - 1])
                c = 4 + 2 + (r - p) + cost[r]
                if c < best:
                    best, pick = c, (r, 4)
        cost[p], choice[p] = best, pick
    ranges = []
    p = first
    while p < end:
        q, kind = choice[p]
        run = values[p:q]
        if kind == 0:
            ranges.append((p, 1, None))
        elif kind == 1:
            ranges.append((p, 1, [0xFEFF if v is None else v for v in run]))
        elif kind == 2:
            ranges.append((p, 2, run[0]))
        else:
            base = min(run)
            ranges.append((p, 4, (base, [v - base for v in run])))
        p = q
    if end < 256:
        ranges.append((end, 1, None))
    return ranges


def split_unicode_ranges(pairs):
    """pairs: sorted (unicode, code). Returns records (first, last, type, payload)."""
    n = len(pairs)
    u = [p[0] for p in pairs]
    c = [p[1] for p in pairs]
    cost = [INF] * (n + 1)
    choice = [None] * (n + 1)
    cost[n] = 0
    for i in range(n - 1, -1, -1):
        best, pick = INF, None
        for j in range(i + 1, n + 1):  # type 1: 2 bytes per position, holes included
            span = u[j - 1] - u[i] + 1
            if span > 600:
                break
            v = 8 + 2 * span + cost[j]
            if v < best:
                best, pick = v, (j, 1)
        j = i + 1
        while j < n and u[j] == u[j - 1] + 1 and c[j] == c[j - 1] + 1:
            j += 1
        for k in range(i + 1, j + 1):  # type 2
            v = 8 + 2 + cost[k]
            if v < best:
                best, pick = v, (k, 2)
        lo = hi = c[i]
        k = i + 1
        while True:  # type 4: no holes, codes within 255 of the smallest
            size = 2 + (k - i)
            v = 8 + size + (size & 1) + cost[k]
            if v < best:
                best, pick = v, (k, 4)
            if k >= n or u[k] != u[k - 1] + 1:
                break
            lo, hi = min(lo, c[k]), max(hi, c[k])
            if hi - lo > 255:
                break
            k += 1
        cost[i], choice[i] = best, pick
    records = []
    i = 0
    while i < n:
        j, kind = choice[i]
        first, last = u[i], u[j - 1]
        if kind == 1:
            table = [0xFEFF] * (last - first + 1)
            for k in range(i, j):
                table[u[k] - first] = c[k]
            records.append((first, last, 1, table))
        elif kind == 2:
            records.append((first, last, 2, c[i]))
        else:
            base = min(c[i:j])
            records.append((first, last, 4, (base, [x - base for x in c[i:j]])))
        i = j
    return records


class Page:
    def __init__(self, number):
        self.number = number
        self.mapping = code_to_unicode(number)
        self.leads = LEAD_BYTES.get(number, [])
        self.reverse = unicode_to_code(number, self.mapping)
        self.build_cu()
        self.build_uc()

    def build_cu(self):
        index1 = []
        index2 = []
        data = bytearray()
        data += (0xFEFF).to_bytes(2, "little") * 256  # shared block for undefined trail bytes
        leads = set(self.leads)
        for b in range(256):
            if b not in leads:
                index1.append(self.mapping.get(b, 0xFEFF) << 16)
                continue
            values = [self.mapping.get(b << 8 | t) for t in range(256)]
            ranges = split_trail_ranges(values)
            index1.append(len(index2) << 16 | len(ranges))
            for first, kind, payload in ranges:
                if payload is None:
                    offset = 0
                else:
                    offset = len(data)
                    if kind == 1:
                        for v in payload:
                            data += v.to_bytes(2, "little")
                    elif kind == 2:
                        data += payload.to_bytes(2, "little")
                    else:
                        data += payload[0].to_bytes(2, "little") + bytes(payload[1])
                assert offset < 0x10000, "page %d: code-to-Unicode data beyond 64 KiB" % self.number
                index2.append(offset << 16 | kind << 8 | first)
        assert len(index2) < 0x10000
        self.index1, self.index2, self.cu_data = index1, index2, bytes(data)

    def build_uc(self):
        records = split_unicode_ranges(sorted(self.reverse.items()))
        index = []
        data = []
        for first, last, kind, payload in records:
            offset = len(data)
            if kind == 1:
                data += payload
            elif kind == 2:
                data.append(payload)
            else:
                raw = payload[0].to_bytes(2, "little") + bytes(payload[1])
                if len(raw) & 1:
                    raw += b"\0"
                data += [int.from_bytes(raw[k:k + 2], "little") for k in range(0, len(raw), 2)]
            assert offset < 0x10000
            index.append((first, last, kind, offset))
        index.append((0xFFFF, 0xFFFF, 0, 0))  # sentinel, read by the inclusive search
        self.uc_index, self.uc_data = index, data

    def check(self):
        """Replays the library's lookups over the generated tables."""
        def get_unicode(code):
            if code > self.max_code:
                return 0xFEFF
            if code < 256:
                e = self.index1[code]
                return 0xFEFF if e & 0xFFFF else e >> 16
            e = self.index1[code >> 8]
            count, start = e & 0xFFFF, e >> 16
            if count == 0:
                return e >> 16
            trail = code & 0xFF
            found = None
            for k in range(start, start + count):
                if self.index2[k] & 0xFF <= trail:
                    found = self.index2[k]
            if found is None:
                return 0xFEFF
            d = trail - (found & 0xFF)
            off = found >> 16
            kind = found >> 8 & 0xFF
            word = lambda o: int.from_bytes(self.cu_data[o:o + 2], "little")
            if kind == 1:
                return word(off + 2 * d)
            if kind == 2:
                return (word(off) + d) & 0xFFFF
            if kind == 4:
                return (word(off) + self.cu_data[off + 2 + d]) & 0xFFFF
            return 0xFEFF

        def get_charcode(ch):
            lo, hi = 0, len(self.uc_index) - 1  # the count, searched inclusively
            while lo <= hi:
                mid = (lo + hi) // 2
                first, last, kind, off = self.uc_index[mid]
                if ch < first:
                    hi = mid - 1
                elif ch > last:
                    lo = mid + 1
                else:
                    d = ch - first
                    if kind == 1:
                        return self.uc_data[off + d]
                    if kind == 2:
                        return (self.uc_data[off] + d) & 0xFFFF
                    if kind == 4:
                        unit = self.uc_data[off + 1 + d // 2]
                        return (self.uc_data[off] + (unit >> 8 * (d & 1) & 0xFF)) & 0xFFFF
                    return 0xFFFF
            return 0xFFFF

        for code in range(0x10000):
            want = self.mapping.get(code, 0xFEFF)
            got = get_unicode(code)
            if code >= 256 and (code >> 8) not in self.leads and code <= self.max_code:
                continue  # two bytes after a single-byte code: answered by index 1
            assert got == want, "page %d code %#x: %#x != %#x" % (self.number, code, got, want)
        for u in range(0x10000):
            got = get_charcode(u)
            want = self.reverse.get(u)
            if want is None:
                assert got in (0xFEFF, 0xFFFF), "page %d U+%04X -> %#x" % (self.number, u, got)
            else:
                assert got == want, "page %d U+%04X: %#x != %#x" % (self.number, u, got, want)

    @property
    def max_code(self):
        return max(self.mapping)

    @property
    def max_unicode(self):
        return max(self.mapping.values())


def hex_rows(values, width, per_line, indent="    "):
    fmt = "0x%%0%dX" % width
    lines = []
    for k in range(0, len(values), per_line):
        lines.append(indent + ", ".join(fmt % v for v in values[k:k + per_line]) + ",")
    return "\n".join(lines)


HEADER = """\
// Generated by tools/gen_code_pages.py from Python's codecs, adjusted to Microsoft's published
// tables as the generator explains. Do not edit; regenerate with
//   python3 tools/gen_code_pages.py --out-dir norvane/text
"""


def emit_tables(pages):
    out = [HEADER, "// The fourteen Windows code pages in the layout code_page.h describes.\n\n"]
    out.append('#include "norvane/text/code_page.h"\n\n')
    out.append("namespace {\n\n")
    for p in pages:
        n = p.number
        out.append("// Code page %d: %d codes, %d Unicode records.\n" % (n, len(p.mapping), len(p.uc_index) - 1))
        out.append("const uint32_t kCP%d_CUMapIndex1[256] = {\n%s\n};\n" % (n, hex_rows(p.index1, 8, 8)))
        if p.index2:
            out.append("const uint32_t kCP%d_CUMapIndex2[%d] = {\n%s\n};\n" % (n, len(p.index2), hex_rows(p.index2, 8, 8)))
            out.append("const uint8_t kCP%d_CUData[%d] = {\n%s\n};\n" % (n, len(p.cu_data), hex_rows(list(p.cu_data), 2, 16)))
        rows = "\n".join("    {0x%04X, 0x%04X, %d, 0x%04X}," % r for r in p.uc_index)
        out.append("const KD_CodePage_UCRecord kCP%d_UCMapIndex[%d] = {\n%s\n};\n" % (n, len(p.uc_index), rows))
        out.append("const uint16_t kCP%d_UCData[%d] = {\n%s\n};\n\n" % (n, len(p.uc_data), hex_rows(p.uc_data, 4, 12)))
    out.append("}  // namespace\n\n")
    for p in pages:
        n = p.number
        dbcs = bool(p.leads)
        out.append("const KD_CodePage_MapHeader g_CP%d_MapHeader = {%d, 1, %d, %d, %d, {0, 0, 0}, 0, 0x%X, 0x3F, 0, 0x%X, 0x3F};\n"
                   % (n, n, 2 if dbcs else 1, 2 if dbcs else 1, 1 if dbcs else 0, p.max_code, p.max_unicode))
        if dbcs:
            out.append("const KD_CodePage_CUMap g_CP%d_CUMap = {kCP%d_CUMapIndex1, kCP%d_CUMapIndex2, kCP%d_CUData};\n" % (n, n, n, n))
        else:
            out.append("const KD_CodePage_CUMap g_CP%d_CUMap = {kCP%d_CUMapIndex1, nullptr, nullptr};\n" % (n, n))
        out.append("const KD_CodePage_UCMap g_CP%d_UCMap = {%d, kCP%d_UCMapIndex, kCP%d_UCData};\n\n"
                   % (n, len(p.uc_index) - 1, n, n))
    return "".join(out)


# Names accepted by KD_GetCodePageFromStringA: the usual labels of each code page (the labels the
# Encoding Standard of the web gives, which send iso-8859-1, latin1 and us-ascii to windows-1252,
# iso-8859-9 to windows-1254 and tis-620 to windows-874), the cpNNN, windows-NNNN, ibmNNN and msNNN
# spellings, and the numbers themselves. Pages outside the fourteen tables are named with their
# Windows numbers so that callers can tell a known but unsupported encoding from an unknown one.
NAMES = {
    65001: ["utf-8", "utf8", "unicode-1-1-utf-8", "unicode11utf8", "unicode20utf8", "x-unicode20utf8", "cp65001",
            "windows-65001", "65001"],
    1200: ["utf-16le", "utf-16", "utf16le", "utf16", "ucs-2", "ucs-2le", "ucs2", "csunicode", "iso-10646-ucs-2",
           "unicode", "unicodefeff", "cp1200", "1200"],
    1201: ["utf-16be", "utf16be", "unicodefffe", "ucs-2be", "cp1201", "1201"],
    874: ["windows-874", "cp874", "ms874", "x-cp874", "dos-874", "iso-8859-11", "iso8859-11", "iso885911", "tis-620",
          "tis620", "874"],
    932: ["shift_jis", "shift-jis", "sjis", "x-sjis", "csshiftjis", "ms_kanji", "ms932", "windows-31j", "cswindows31j",
          "cp932", "windows-932", "x-ms-cp932", "932"],
    936: ["gbk", "x-gbk", "cp936", "ms936", "windows-936", "gb2312", "gb_2312", "gb_2312-80", "csgb2312",
          "csiso58gb231280", "iso-ir-58", "chinese", "euc-cn", "x-euc-cn", "936"],
    949: ["euc-kr", "euckr", "cseuckr", "ks_c_5601-1987", "ks_c_5601-1989", "ks_c_5601", "ksc5601", "ksc_5601",
          "csksc56011987", "iso-ir-149", "korean", "cp949", "ms949", "windows-949", "uhc", "949"],
    950: ["big5", "big-5", "big-five", "bigfive", "cn-big5", "csbig5", "x-x-big5", "cp950", "ms950", "windows-950",
          "x-cp950", "950"],
    1250: ["windows-1250", "cp1250", "x-cp1250", "ms-ee", "1250"],
    1251: ["windows-1251", "cp1251", "x-cp1251", "ms-cyrl", "1251"],
    1252: ["windows-1252", "cp1252", "x-cp1252", "ms-ansi", "iso-8859-1", "iso8859-1", "iso88591", "iso_8859-1",
           "iso_8859-1:1987", "iso-ir-100", "csisolatin1", "latin1", "l1", "ibm819", "cp819", "us-ascii", "ascii",
           "ansi_x3.4-1968", "1252"],
    1253: ["windows-1253", "cp1253", "x-cp1253", "ms-greek", "1253"],
    1254: ["windows-1254", "cp1254", "x-cp1254", "ms-turk", "iso-8859-9", "iso8859-9", "iso88599", "iso_8859-9",
           "iso_8859-9:1989", "iso-ir-148", "csisolatin5", "latin5", "l5", "1254"],
    1255: ["windows-1255", "cp1255", "x-cp1255", "ms-hebr", "1255"],
    1256: ["windows-1256", "cp1256", "x-cp1256", "ms-arab", "1256"],
    1257: ["windows-1257", "cp1257", "x-cp1257", "winbaltrim", "1257"],
    1258: ["windows-1258", "cp1258", "x-cp1258", "1258"],
    # Other pages of the charset table and common encodings, by their Windows numbers.
    437: ["ibm437", "cp437", "437", "cspc8codepage437"],
    850: ["ibm850", "cp850", "850", "cspc850multilingual"],
    852: ["ibm852", "cp852", "852"],
    866: ["ibm866", "cp866", "866", "csibm866"],
    1361: ["johab", "x-johab", "cp1361"],
    10000: ["macintosh", "mac", "csmacintosh", "x-mac-roman", "macroman"],
    10001: ["x-mac-japanese"],
    10002: ["x-mac-chinesetrad"],
    10003: ["x-mac-korean"],
    10004: ["x-mac-arabic"],
    10005: ["x-mac-hebrew"],
    10006: ["x-mac-greek", "macgreek"],
    10007: ["x-mac-cyrillic", "x-mac-ukrainian", "maccyrillic"],
    10008: ["x-mac-chinesesimp"],
    10021: ["x-mac-thai"],
    10029: ["x-mac-ce", "x-mac-centraleurope", "maccentraleurope"],
    10081: ["x-mac-turkish", "macturkish"],
    12000: ["utf-32", "utf-32le", "utf32"],
    12001: ["utf-32be"],
    20866: ["koi8-r", "koi8", "cskoi8r"],
    21866: ["koi8-u", "koi8-ru"],
    28592: ["iso-8859-2", "iso8859-2", "iso88592", "latin2", "l2", "csisolatin2"],
    28593: ["iso-8859-3", "iso8859-3", "latin3", "l3"],
    28594: ["iso-8859-4", "iso8859-4", "latin4", "l4"],
    28595: ["iso-8859-5", "iso8859-5", "cyrillic", "csisolatincyrillic"],
    28596: ["iso-8859-6", "iso8859-6", "arabic", "asmo-708"],
    28597: ["iso-8859-7", "iso8859-7", "greek"],
    28598: ["iso-8859-8", "iso8859-8", "hebrew"],
    28603: ["iso-8859-13", "iso8859-13"],
    28605: ["iso-8859-15", "iso8859-15", "latin-9", "latin9", "l9"],
    50220: ["iso-2022-jp", "csiso2022jp"],
    50225: ["iso-2022-kr", "csiso2022kr"],
    51932: ["euc-jp"],
    52936: ["hz-gb-2312"],
    54936: ["gb18030"],
    65000: ["utf-7", "utf7"],
}

NAME_COUNT = 255


def name_hash(name):
    h = 0
    for ch in name.encode("ascii"):
        if 0x41 <= ch <= 0x5A:
            ch += 32
        signed = ch - 256 if ch >= 0x80 else ch
        h = (h * 31 + signed) & 0xFFFFFFFF
    return h


def emit_names():
    records = {}
    for page, names in NAMES.items():
        for name in names:
            h = name_hash(name)
            if h in records:
                other_page, other_names = records[h]
                assert other_page == page, "%r and %r share hash %#x" % (name, other_names, h)
                other_names.append(name)
            else:
                records[h] = (page, [name])
    assert len(records) == NAME_COUNT, "%d name records, want %d" % (len(records), NAME_COUNT)
    lines = [HEADER, "// The code-page name hashes searched by KD_GetCodePageFromStringA: each record is the\n"
             "// case-insensitive KD_HashCode_String_GetA of a name and its code page, sorted by hash.\n\n"]
    lines.append('#include "norvane/text/charset_internal.h"\n\n')
    lines.append("const KD_CodePageNameHash g_CodePageNameHashes[%d] = {\n" % NAME_COUNT)
    for h in sorted(records):
        page, names = records[h]
        lines.append("    {0x%08X, %d},  // %s\n" % (h, page, ", ".join(names)))
    lines.append("};\n")
    return "".join(lines)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--out-dir", default=os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "norvane", "text"))
    args = parser.parse_args()
    pages = []
    for number in PAGES:
        page = Page(number)
        page.check()
        pages.append(page)
        print("code page %5d: %5d codes, %4d ranges, %5d data bytes, %4d Unicode records, %5d data units"
              % (number, len(page.mapping), len(page.index2), len(page.cu_data), len(page.uc_index) - 1,
                 len(page.uc_data)), file=sys.stderr)
    with open(os.path.join(args.out_dir, "code_page_tables_generated.cpp"), "w") as f:
        f.write(emit_tables(pages))
    with open(os.path.join(args.out_dir, "code_page_names_generated.cpp"), "w") as f:
        f.write(emit_names())


if __name__ == "__main__":
    main()
