#include "qn/media/qnsummary.h"

#include "qn/kernel/qnstream.h"
#include "qn/platform/locale.h"
#include "tests/media/media_file.h"

namespace {

using namespace qntest;

using Items = std::vector<std::pair<uint32_t, const WCHAR*>>;

struct Summary : _summarylisttag {
  Summary() : _summarylisttag{} {}
  explicit Summary(const Items& all) : Summary() {
    for (const auto& [id, text] : all) EXPECT_EQ(QnSummary_SetItem(this, id, text), S_OK);
  }
  Summary(const Summary&) = delete;
  ~Summary() { QnSummary_Free(this); }
  // The items as "1=text 2 "; one without a text has no sign.
  std::u16string Content() const {
    std::u16string all;
    for (uint32_t i = 0; i < count; ++i) {
      all += static_cast<WCHAR>(u'0' + items[i].id % 256 % 10);
      if (items[i].text) all += u'=' + std::u16string(items[i].text);
      all += u' ';
    }
    return all;
  }
};

TEST(Summary, SetMergeCopyCompare) {
  Summary list({{1, u"a"}, {2, nullptr}, {3, u"c"}, {4, u""}});
  EXPECT_EQ(list.Content(), u"1=a 2 3=c 4= ");
  EXPECT_EQ(QnSummary_SetItem(&list, 0, u"x"), E_INVALIDARG);
  for (const auto& [id, text, after] : {std::tuple(2, (const WCHAR*)nullptr, u"1=a 2 3=c 4= "),
                                        {1, list.items[0].text, u"1=a 2 3=c 4= "},
                                        {1, u"", u"2 3=c 4= "},
                                        {2, u"b", u"2=b 3=c 4= "},
                                        {4, nullptr, u"2=b 3=c "},
                                        {3, nullptr, u"2=b "},
                                        {2, nullptr, u""}}) {
    EXPECT_EQ(QnSummary_SetItem(&list, id, text), S_OK);
    EXPECT_EQ(list.Content(), after);
  }
  EXPECT_EQ(list.items, nullptr);
  for (int way = 0; way < 8; ++way) {
    const bool overwrite = way & 1, take = way & 2, empty = way & 4;
    Summary to(empty ? Items() : Items{{1, u"a"}, {2, u"b"}}), from({{2, u"B"}, {3, nullptr}, {4, u"D"}});
    EXPECT_EQ(QnSummary_Merge(&to, &from, overwrite, take), S_OK);
    EXPECT_EQ(to.Content(), empty ? u"2=B 3 4=D " : overwrite ? u"1=a 2=B 3 4=D " : u"1=a 2=b 3 4=D ") << way;
    EXPECT_EQ(from.count, take ? 0 : 3) << way;
    Summary copy;
    EXPECT_EQ(QnSummary_Copy(&copy, &to), S_OK);
    EXPECT_EQ(copy.Content(), to.Content());
    copy.items[0].id = 9;
    EXPECT_EQ(QnSummary_Compare(&copy, &to), 1);
    QnSummary_SetItem(&copy, 4, u"E");
    EXPECT_EQ(QnSummary_Compare(&copy, &to), 0);
  }
  // Nothing moves: the array stays.
  Summary to({{1, u"a"}}), from({{1, u"b"}});
  const QnSummaryItem* const items = to.items;
  EXPECT_EQ(QnSummary_Merge(&to, &from, true, true), S_OK);
  EXPECT_EQ(std::tuple(to.Content(), to.items), std::tuple(u"1=b ", items));
  EXPECT_EQ(std::tuple(QnSummary_Compare(&list, nullptr), QnSummary_GetItemIndex(&list, 1)),
            std::tuple(0, kMissing));
}

struct SummaryFile : ::testing::Test, RiffShape {
  SummaryFile() { SetAnsiCodePage(1252); }
  ~SummaryFile() override { SetAnsiCodePage(0); }
};

const Bytes kInfo = Hex("'LIST' 18 00 00 00 'INFO' '1nam' 02 00 00 00 E9 00 '2cmt' 01 00 00 00 00 00");
const Bytes kUnfo = Hex("'LIST' 1A 00 00 00 'UNFO' '1nam' 04 00 00 00 E9 00 00 00 '2cmt' 02 00 00 00 00 00");

TEST_F(SummaryFile, SavesAndLoads) {
  const uint32_t name = RiffId("1nam"), comment = RiffId("2cmt");
  for (bool wide : {false, true}) {
    const auto save = wide ? QnSummary_SaveUNFO : QnSummary_Save;
    const auto load = wide ? QnSummary_LoadUNFO : QnSummary_Load;
    const Bytes& bytes = wide ? kUnfo : kInfo;
    for (const auto& [items, expected] :
         {std::pair(Items{{name, u"\u00E9"}, {9, nullptr}, {comment, u""}}, bytes),
          {Items{{9, nullptr}}, List(wide ? "UNFO" : "INFO", {})},
          {Items{}, {}}}) {
      TestFile file;
      uint32_t written = 1;
      EXPECT_EQ(save(file, std::make_unique<Summary>(items).get(), &written), S_OK);
      EXPECT_EQ(std::tuple(file.Content(), written), std::tuple(expected, expected.size()));
    }
    // Every budget and every cut of the file: all that begins in the budget or nothing, and the place that
    // goes with it.
    for (size_t end = 12; end <= bytes.size(); ++end) {
      for (size_t budget = 0; budget <= bytes.size() - 12; ++budget) {
        TestFile file(Bytes(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(end)));
        file.Go(12);
        Summary list;
        auto remaining = static_cast<uint32_t>(budget);
        const HRESULT status = load(file, &list, &remaining);
        const size_t first = wide ? 12 : 10, second = first + (wide ? 10 : 9), have = end - 12;
        const bool two = budget >= first + 8, good = budget < 8 || have >= (two ? second : first);
        EXPECT_EQ(status, good ? S_OK : kShort) << wide << ' ' << end << ' ' << budget;
        EXPECT_EQ(list.Content(), !good || budget < 8 ? u"" : two ? u"9=\u00E9 0= " : u"9=\u00E9 ");
        EXPECT_EQ(file.At(), 12 + (list.count == 0 ? 0 : two ? second + !wide : first));
        EXPECT_EQ(remaining, budget - std::min<size_t>(budget, file.At() - 12));
      }
    }
  }
  // Odd wide texts have a pad byte.
  TestFile odd(Chunk("1nam", Hex("'a' 00 'b'")) + Chunk("2cmt", Hex("'c' 00")));
  uint32_t remaining = 23;
  Summary list;
  EXPECT_EQ(QnSummary_LoadUNFO(odd, &list, &remaining), S_OK);
  EXPECT_EQ(list.Content(), u"9=a 0=c ");
  EXPECT_EQ(QnSummary_Load(odd, nullptr, &remaining), E_INVALIDARG);
  EXPECT_EQ(QnSummary_Save(TestFile({}, GENERIC_READ), &list, &remaining), QN_E_FILE_WRITE);
  EXPECT_EQ(remaining, 1);
}

TEST_F(SummaryFile, FindsOneText) {
  SetAnsiCodePage(CP_UTF8);
  const Bytes before = Chunk("data", Bytes(3)) + List("UNFO", Chunk("1nam", Bytes(4)));
  const Bytes info = List("INFO", Chunk("2cmt", Hex("'no' 00")) + Chunk("1nam", Hex("'text' 00")));
  const Bytes all = before + info + List("INFO", Chunk("late", Hex("'x' 00")));
  TestFile file(all), cut(Bytes(all.begin(), all.begin() + ptrdiff_t(before.size() + info.size() - 4)));
  TestFile pair(List("INFO", Chunk("1nam", Hex("'a' F0 9F 98 80 00"))));
  const auto whole = static_cast<uint32_t>(all.size());
  for (const auto& [what, id, size, budget, status, text] :
       {std::tuple(&file, "1nam", 9, -1, S_OK, u"text"),
        {&file, "1nam", 3, int(whole), S_OK, u"te"},
        {&file, "2cmt", 1, -1, S_OK, u""},
        {&file, "late", 9, -1, kMissing, u"?"},
        {&file, "1nam", 9, int(before.size() + info.size()) - 2, S_OK, u"text"},
        {&file, "1nam", 0, -1, E_INVALIDARG, u"?"},
        {&cut, "1nam", 9, -1, kShort, u"?"},
        {&cut, "late", 9, int(whole), kMissing, u"?"},
        {&pair, "1nam", 3, -1, S_OK, u"a"},
        {&pair, "1nam", 4, -1, S_OK, u"a\U0001F600"}}) {
    WCHAR buffer[9] = u"?";
    auto remaining = static_cast<uint32_t>(budget);
    EXPECT_EQ(QnSummary_GetStringFromFile(*what, RiffId(id), buffer, size, budget < 0 ? nullptr : &remaining),
              status);
    EXPECT_EQ(std::tuple(std::u16string(buffer), what->At()), std::tuple(text, 0)) << id << budget;
  }
}

TEST(SummaryStream, PersistsAndCreates) {
  for (bool null : {false, true}) {
    Summary list({{1, u"ab"}, {2, null ? nullptr : u""}});
    const Bytes expected =
        Hex("08 *3 02 *3 01 *3 06 *3 'a' 00 'b' *3 02 *3 ") + (null ? Bytes(8) : Hex("02 *5 "));
    for (size_t size = 1; size <= expected.size(); ++size) {
      Bytes bytes(size);
      const Bytes start(expected.begin(), expected.begin() + ptrdiff_t(size));
      IStream* stream;
      ASSERT_EQ(QnCreateStreamFromMemory(bytes.data(), DWORD(size), DWORD(0), &stream, FALSE), S_OK);
      EXPECT_EQ(list.Persist(stream, 0), size < expected.size() ? QN_E_FILE_WRITE : S_OK);
      stream->Release();
      EXPECT_EQ(bytes, start);
      ASSERT_EQ(QnCreateStreamFromMemory(bytes.data(), DWORD(size), DWORD(size), &stream, FALSE), S_OK);
      Summary back;
      const bool good = size >= expected.size() - (null ? 4 : 0);
      EXPECT_EQ(_summarylisttag::Create(stream, 0, &back), good ? S_OK : kShort) << size;
      EXPECT_EQ(back.Content(), good ? list.Content() : u"");
      stream->Release();
    }
  }
}

template <class Shape>
struct Display : ::testing::Test, Shape {
  static constexpr bool kWide = Shape::kAlign == 8;
  static Bytes Disp(const Bytes& data) {
    return kWide ? Shape::Chunk(Hex("25 CA 2C 61 BB 92 55 4C 84 08 7B DA 2F 15 BD 27"), data)
                 : Shape::Chunk("DISP", data);
  }
  // The data of the items as text.
  static std::string Content(const displist_List* list) {
    std::string all;
    for (uint32_t i = 0; i < list->count; ++i) {
      all += std::string(static_cast<char*>(list->items[i].data), list->items[i].size) + "|";
    }
    return all;
  }
};
using Shapes = ::testing::Types<RiffShape, Wave64Shape>;
TYPED_TEST_SUITE(Display, Shapes);

TYPED_TEST(Display, SavesAndLoads) {
  const auto save = this->kWide ? displist64_Save : displist_Save;
  const auto load = this->kWide ? displist64_Load : displist_Load;
  displist_List* const list = displist_Create();
  EXPECT_EQ(displist_SetItem(list, 8, 3, "dib"), 0);
  EXPECT_EQ(displist_SetItem(list, 2, 3, "dib"), -1);
  TestFile saved;
  uint32_t written = 0;
  EXPECT_EQ(save(saved, list, &written), S_OK);
  const Bytes disp = this->Disp(Hex("08 *3 'dib'"));
  EXPECT_EQ(std::tuple(saved.Content(), written), std::tuple(disp, disp.size()));
  EXPECT_EQ(save(TestFile({}, GENERIC_READ), list, &written), QN_E_FILE_WRITE);
  EXPECT_EQ(written, disp.size());
  EXPECT_EQ(load(nullptr, std::make_unique<displist_List>().get(), nullptr), S_OK);
  // The last chunk of the others is too small for its id.
  const Bytes tail = this->Disp(Hex("07 *3 'x'"));
  const Bytes other = this->Chunk("data", Bytes(5)) + tail + this->Disp(Hex("07 01"));
  for (const auto& [bytes, status, content] :
       {std::tuple(other + this->Disp(Hex("01 *3 'text'")) + disp, S_OK, "text|dib|"),
        {this->Disp(Hex("08 *3 ")), S_OK, "|"},
        {disp + this->Disp(Hex("01 00")) + Bytes(2), kShort, "|"},
        {disp + Bytes(disp.begin(), disp.begin() + TypeParam::kHeader + 6), kShort, "|"}}) {
    for (bool bounded : {false, true}) {
      TestFile file(bytes);
      auto remaining = static_cast<uint32_t>(bytes.size() + 7);
      displist_SetItem(list, 8, 0, "x");
      EXPECT_EQ(load(file, list, bounded ? &remaining : nullptr), status);
      EXPECT_EQ(this->Content(list), std::string(content) + (*content == '|' ? "|" : ""));
      EXPECT_EQ(file.At(), status == S_OK ? bytes.size() : 0);
      EXPECT_EQ(remaining, status == S_OK && bounded ? 7 : bytes.size() + 7);
      displist_Free(list);
    }
  }
  // A budget that ends with the header: what the list has no use for need not be there.
  for (const Bytes& bytes : {disp, Bytes(tail.begin(), tail.begin() + TypeParam::kHeader + 4)}) {
    uint32_t budget = TypeParam::kHeader;
    EXPECT_EQ(load(TestFile(bytes), list, &budget), S_OK);
    EXPECT_EQ(std::tuple(this->Content(list), budget), std::tuple("|dib|", 0));
  }
  const auto fromStream = [list](void* bytes, size_t size) {
    IStream* stream;
    QnCreateStreamFromMemory(bytes, DWORD(size), DWORD(size), &stream, FALSE);
    const HRESULT status = displist_LoadFromStream(list, stream);
    stream->Release();
    return status;
  };
  for (Bytes bytes = Hex("02 *3 08 *3 01 *3 'd' 05 *3 02 *3 'xy'"); !bytes.empty(); bytes.pop_back()) {
    const bool whole = bytes.size() == 23;
    EXPECT_EQ(fromStream(bytes.data(), bytes.size()), whole ? S_OK : kShort);
    EXPECT_EQ(this->Content(list), whole ? "|d|xy|" : "|||");
  }
  // Many items, the ids of the list among them.
  std::vector<uint32_t> many = {600};
  for (uint32_t i = 0; i < 600; ++i) many.insert(many.end(), {i, 0});
  EXPECT_EQ(fromStream(many.data(), many.size() * 4), S_OK);
  EXPECT_EQ(std::tuple(list->count, list->items[2].id, list->items[599].id), std::tuple(600, 5, 599));
  displist_Destroy(list);
}

// The pixels of a file's picture, 4 bytes each, the bottom row first; none without a picture.
Bytes Picture(const Bytes& form) {
  BITMAPINFO info = {};
  info.bmiHeader.biSize = sizeof info.bmiHeader;
  const HBITMAP bitmap = displist_CreateBitmapFromFile(TestFile(form).Path());
  GetDIBits(nullptr, bitmap, 0, 0, nullptr, &info, DIB_RGB_COLORS);
  Bytes pixels(info.bmiHeader.biSizeImage);
  GetDIBits(nullptr, bitmap, 0, UINT32_MAX, pixels.data(), &info, DIB_RGB_COLORS);
  EXPECT_EQ(DeleteObject(bitmap), !pixels.empty());
  return pixels;
}

TEST(DisplayBitmap, IsTheFirstDibOfTheForm) {
  const auto disp = [](const Bytes& dib) { return RiffShape::Chunk("DISP", Hex("08 *3 ") + dib); };
  const auto form = [](const Bytes& chunks) { return RiffShape::Form(chunks); };
  // 2 x 1 of 8 bits with 2 colours, and as 32 bits with masks behind the header.
  const Bytes dib = Hex("28 *3 02 *3 01 *3 01 00 08 *17 02 *7 01 02 03 00 04 05 06 00 01 00 00 00");
  const Bytes masked = Hex("28 *3 02 *3 01 *3 01 00 20 00 03 *23 FF *4 FF *4 FF 00 03 02 01 00 06 05 04 00");
  const Bytes picture = Hex("04 05 06 00 01 02 03 00"), swapped = Hex("01 02 03 00 04 05 06 00");
  const Bytes others = RiffShape::Chunk("data", Bytes(3)) + RiffShape::Chunk("DISP", Hex("01 *3 'text'")) +
                       RiffShape::Chunk("DISP", Hex("08")) + RiffShape::List("LIST", disp(masked));
  EXPECT_EQ(Picture(RiffShape::Form(disp(masked), 12)), swapped);  // begins in the form
  EXPECT_EQ(Picture(form(others + disp(dib) + disp(masked))), picture);
  std::vector<Bytes> bad = {form(others),
                            form(disp({}) + disp(dib)),
                            form(RiffShape::Chunk("DISP", Bytes(99))) + disp(dib),
                            disp(dib),
                            form(disp(dib)),
                            form(disp(masked))};
  bad[4].pop_back();
  bad[5][64] = 5;  // a mask with a hole
  for (Bytes cut = dib; !cut.empty(); bad.push_back(form(disp(cut)))) cut.pop_back();
  // Fields of the header that lie, each with its place. The one with more rows than allowed is RLE8.
  const int lies[][2] = {{0, 39},       {0, 41},        {0, -1},  {4, 0},         {4, 5},        {4, -1},
                         {8, 0},        {8, 2},         {8, -2},  {8, INT32_MIN}, {12, 0x80000}, {12, 1},
                         {12, 0x20001}, {12, 0x180001}, {12, -1}, {16, 4},        {32, 0},       {32, 3},
                         {32, -1},      {8, 0x1000001}, {16, 2},  {16, 3}};
  for (const auto& [place, value] : lies) {
    Bytes lying = dib;
    lying[16] = value == 0x1000001;
    std::memcpy(&lying[size_t(place)], &value, 4);
    bad.push_back(form(disp(lying)));
  }
  for (size_t i = 0; i < bad.size(); ++i) EXPECT_EQ(Picture(bad[i]), Bytes()) << i;
}

TEST(BroadcastList, SetsAndDeletes) {
  QnBWFList list = {}, copy = {};
  QnBWFField field = {{1, 2, 3, 4}, 1, 7, 5, u"n", u"v", 6, u"e", 8, u"o"};
  EXPECT_EQ(QnBWFList_SetItem(&list, &field), S_OK);
  EXPECT_EQ(QnBWFList_DeleteItem(&list, 9), S_OK);  // adds an empty one
  EXPECT_EQ(QnBWFList_Copy(&copy, &list), S_OK);
  const QnBWFField& first = copy.fields[0];
  EXPECT_EQ(std::tuple(copy.count, first.spare[3], first.spare3, std::u16string(first.note), first.extraKind),
            std::tuple(2, 4, 8, u"o", 6));
  field.value = u"new";
  field.extraText = u"";
  EXPECT_EQ(QnBWFList_SetItem(&copy, &field), S_OK);
  EXPECT_EQ(std::tuple(std::u16string(first.value), first.valueLength, first.extraText, first.extraKind),
            std::tuple(u"new", 3, nullptr, 0));
  EXPECT_EQ(QnBWFList_DeleteItem(&copy, 9), S_OK);
  EXPECT_EQ(QnBWFList_DeleteItem(&copy, 7), S_OK);
  EXPECT_EQ(std::tuple(copy.count, QnBWFList_GetItemIndex(&copy, 7), QnBWFList_GetItemIndex(&copy, 9)),
            std::tuple(1, -1, 0));
  EXPECT_EQ(QnBWFList_DeleteItem(&copy, 0), E_INVALIDARG);
  for (QnBWFList* each : {&list, &copy}) EXPECT_EQ(QnBWFList_Free(each), S_OK);
}

}  // namespace
