// Allocation-failure sweeps of strings, buffers and text conversions. Each step checks the
// documented result: a string whose allocation failed is empty (Replace leaves it unchanged), a
// buffer that cannot grow keeps its contents and says false, a coder drops the units it cannot
// store, a conversion whose result cannot be allocated gives the empty string.
#include <gtest/gtest.h>

#include <string>

#include "norvane/text/binary_buf.h"
#include "norvane/text/byte_string.h"
#include "norvane/text/char_map.h"
#include "norvane/text/string_l.h"
#include "norvane/text/text_buf.h"
#include "norvane/text/utf8_coder.h"
#include "norvane/text/wide_string.h"
#include "tests/oom_sweep/sweep.h"

namespace {

using kdsweep::Trial;

std::string Str(const CKD_ByteStringC& s) { return std::string(s.GetCStr() ? s.GetCStr() : "", s.GetLength()); }
std::wstring WStr(const CKD_WideStringC& s) { return std::wstring(s.GetPtr() ? s.GetPtr() : L"", s.GetLength()); }

// What a step left: ok when nothing failed, otherwise failed.
template <class S>
S Expected(Trial& run, const S& ok, const S& failed = S()) {
  return run.Failed() ? failed : ok;
}

// Whether every element of part appears in whole, in order (a coder dropped the others).
template <class S>
bool Subsequence(const S& part, const S& whole) {
  size_t at = 0;
  for (auto c : part) {
    at = whole.find(c, at);
    if (at == S::npos) return false;
    ++at;
  }
  return true;
}

std::string ReplaceAll(std::string s, const std::string& from, const std::string& to) {
  for (size_t at = 0; (at = s.find(from, at)) != std::string::npos; at += to.size()) s.replace(at, from.size(), to);
  return s;
}

TEST(AllocationSweep, ByteStringEditing) {
  long allocations = kdsweep::Sweep([](Trial& run) {
    CKD_ByteString s("hello, world");
    std::string model = Expected<std::string>(run, "hello, world");
    EXPECT_EQ(Str(s), model);
    {
      CKD_ByteString shared = s;  // appending to a shared string makes a record of its own
      const std::string before = model;
      s += ", and more";
      model = Expected(run, model + ", and more");
      EXPECT_EQ(Str(s), model);
      EXPECT_EQ(Str(shared), before);
    }
    int len = s.Insert(0, '>');
    model = Expected(run, ">" + model);
    EXPECT_EQ(Str(s), model);
    EXPECT_EQ(len, static_cast<int>(model.size()));
    int count = s.Replace("o", "0.0");
    if (run.Failed()) {
      EXPECT_EQ(count, 0);  // unchanged
    } else {
      model = ReplaceAll(model, "o", "0.0");
    }
    EXPECT_EQ(Str(s), model);
    CKD_ByteString mid = s.Mid(2, 6);
    EXPECT_EQ(Str(mid), Expected(run, model.size() > 2 ? model.substr(2, 6) : std::string()));
    EXPECT_EQ(Str(s), model);
    {
      CKD_ByteString copy = s;
      copy.SetAt(0, 'X');  // copy-on-write
      std::string changed = model.empty() ? model : "X" + model.substr(1);
      EXPECT_EQ(Str(copy), Expected(run, changed));
      copy.TrimRight("d");
      EXPECT_EQ(Str(s), model);
    }
    s.Format("%s-%05d-%ls", "abc", 42, L"wide");
    model = Expected<std::string>(run, "abc-00042-wide");
    EXPECT_EQ(Str(s), model);
    if (char* p = s.GetBuffer(64)) {
      EXPECT_FALSE(run.Failed());
      memcpy(p, "buffer", 7);
      s.ReleaseBuffer();
      model = "buffer";
    } else {
      EXPECT_TRUE(run.Failed());
      model.clear();
    }
    EXPECT_EQ(Str(s), model);
    CKD_ByteString number = CKD_ByteString::FormatInteger(-5, CKD_ByteString::FORMAT_SIGNED);
    EXPECT_EQ(Str(number), Expected<std::string>(run, "-5"));
    CKD_ByteString joined = CKD_ByteStringC("left") + CKD_ByteStringC("right");
    EXPECT_EQ(Str(joined), Expected<std::string>(run, "leftright"));
  });
  EXPECT_GE(allocations, 9);
}

TEST(AllocationSweep, WideStringEditing) {
  kdsweep::Sweep([](Trial& run) {
    CKD_WideString w(L"wide text");
    std::wstring model = Expected<std::wstring>(run, L"wide text");
    EXPECT_EQ(WStr(w), model);
    CKD_WideString shared = w;
    const std::wstring before = model;
    w += L" grows";
    model = Expected(run, model + L" grows");
    EXPECT_EQ(WStr(w), model);
    EXPECT_EQ(WStr(shared), before);
    w.Insert(0, L'[');
    model = Expected(run, L"[" + model);
    EXPECT_EQ(WStr(w), model);
    w.Format(L"%ls=%d", L"key", 7);
    EXPECT_EQ(WStr(w), Expected<std::wstring>(run, L"key=7"));
    CKD_WideString left = w.Left(3);
    EXPECT_EQ(WStr(left), Expected<std::wstring>(run, w.IsEmpty() ? L"" : L"key"));
  });
}

TEST(AllocationSweep, Buffers) {
  kdsweep::Sweep([](Trial& run) {
    // The buffer draws on the failing allocator, the strings on the failing default manager.
    CKD_BinaryBuf buf(run.allocator());
    std::string model;
    for (int i = 0; i < 6; ++i) {
      std::string piece(37 * (i + 1), static_cast<char>('a' + i));
      bool ok = buf.AppendBlock(piece.data(), static_cast<int>(piece.size()));
      EXPECT_EQ(ok, !run.Failed());
      if (ok) model += piece;
      ok = buf.InsertBlock(0, "<", 1);
      EXPECT_EQ(ok, !run.Failed());
      if (ok) model.insert(0, "<");
      ASSERT_EQ(Str(buf.GetByteString()), model);  // a failed growth keeps the contents
    }
    // Its own bytes as the argument.
    if (buf.AppendBlock(buf.GetBuffer(), buf.GetSize())) model += model;
    run.Failed();
    EXPECT_EQ(Str(buf.GetByteString()), model);
    CKD_ByteStringL copy;
    buf.GetByteStringL(copy);
    EXPECT_EQ(Str(copy), Expected(run, model));
    copy.Empty(run.allocator());

    CKD_ByteTextBuf text(run.allocator());
    text << CKD_ByteStringC("count ") << 12345 << CKD_ByteStringC(" and ") << -7LL;
    std::string got = Str(text.GetByteString());
    EXPECT_TRUE(Subsequence(got, std::string("count 12345 and -7")));  // failed appends add nothing
    run.Failed();
    CKD_WideTextBuf wide(run.allocator());
    for (int i = 0; i < 200; ++i) wide.AppendChar(static_cast<wchar_t>(0x400 + i));
    EXPECT_EQ(wide.GetLength(), run.Failed() ? wide.GetLength() : 200);
    CKD_WideStringL wl;
    wl.Set(wide.GetWideString(), run.allocator());
    EXPECT_EQ(wl.GetLength(), run.Failed() ? 0 : wide.GetLength());
    wl.Empty(run.allocator());
  });
}

TEST(AllocationSweep, TextConversions) {
  const std::wstring text = L"h\u00e9llo \u4e16\u754c \U0001F600 \u20ac";
  // The UTF-8 of text, and its characters after a trip through code page 1252 ('?' for the rest).
  const std::string utf8 = "h\xc3\xa9llo \xe4\xb8\x96\xe7\x95\x8c \xf0\x9f\x98\x80 \xe2\x82\xac";
  const std::string cp1252 = "h\xe9llo ?? ? \x80";
  kdsweep::Sweep([&](Trial& run) {
    CKD_WideString wide(text.c_str());
    ASSERT_EQ(WStr(wide), Expected(run, text));
    if (wide.IsEmpty()) return;
    // Encoders and decoders drop what they cannot store; the final copy gives all or nothing.
    std::string encoded = Str(wide.UTF8Encode());
    EXPECT_TRUE(encoded == utf8 || (run.Failed() && Subsequence(encoded, utf8))) << encoded;
    run.Failed();
    std::wstring decoded = WStr(CKD_WideString::FromUTF8(utf8.c_str()));
    EXPECT_TRUE(decoded == text || (run.Failed() && Subsequence(decoded, text)));
    decoded = WStr(CKD_ByteString(utf8.c_str()).UTF8Decode());
    EXPECT_TRUE(decoded == text || (run.Failed() && Subsequence(decoded, text)));
    run.Failed();
    CKD_UTF8Encoder encoder(run.allocator());
    for (wchar_t c : text) encoder.Input(c);
    encoded = Str(encoder.GetResult());
    EXPECT_TRUE(encoded == utf8 || (run.Failed() && Subsequence(encoded, utf8)));
    run.Failed();
    CKD_ByteStringL l;
    KD_UTF8Encode(text.c_str(), -1, l, run.allocator());
    EXPECT_TRUE(Str(l) == utf8 || (run.Failed() && Subsequence(Str(l), utf8)));
    l.Empty(run.allocator());
    run.Failed();

    CKD_ByteString narrow;
    narrow.ConvertFrom(wide, CKD_CharMap::GetDefaultMapper(1252));
    EXPECT_EQ(Str(narrow), Expected(run, cp1252));
    CKD_WideString back;
    back.ConvertFrom(narrow, CKD_CharMap::GetDefaultMapper(1252));
    std::wstring expect = narrow.IsEmpty() ? L"" : L"h\u00e9llo ?? ? \u20ac";
    EXPECT_EQ(WStr(back), Expected(run, expect));
    CKD_ByteString units = wide.UTF16LE_Encode(true);
    EXPECT_EQ(units.GetLength(), Expected(run, 2 * static_cast<int>(text.size()) + 2, 0));
    CKD_WideString ascii = CKD_WideString::FromLocal("plain ascii");
    EXPECT_EQ(WStr(ascii), Expected<std::wstring>(run, L"plain ascii"));
    CKD_ByteString local = CKD_ByteString::FromUnicode(L"local");
    EXPECT_EQ(Str(local), Expected<std::string>(run, "local"));
  });
}

}  // namespace
