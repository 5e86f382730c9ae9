#include "qn/settings/qnmsgbox.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <thread>
#include <tuple>
#include <utility>

#include "qn/kernel/qnkernel_internal.h"
#include "qn/platform/winuser_internal.h"
#include "qn/settings/qnmsgbox_internal.h"
#include "qn/text/messages_internal.h"
#include "tests/support/support.h"

namespace {

using Text = std::u16string;
const bool g_hooksWaitForAppData = !QnMsgBoxSetHook(nullptr, 0) && !QnMsgBoxSetNoUIHook(nullptr);

HWND Window(intptr_t number) {
  return reinterpret_cast<HWND>(number);
}

// Ten pixels a character.
struct Ruler final : qn::TextMeasurer {
  int Width(std::u16string_view text, bool mnemonics) const override {
    return static_cast<int>(text.size() - (mnemonics && text.find('&') != text.npos)) * 10;
  }
};
constexpr qn::MsgBoxMetrics kMetrics = {{1000, 600}, {32, 32}, {75, 23}, 10, 15, 10, 5};

// What a hook or a window system has seen, and what stands for a box that is open.
struct Seen {
  int answer = 55;
  intptr_t hooks = 0;
  std::vector<Text> texts;
  std::vector<HWND> owners, centred;
  HOOKPROC live = nullptr;
  std::function<int(qn::MsgBoxRequest*)> open = [](qn::MsgBoxRequest*) { return 77; };
} g_seen;

int Look(ULONGLONG data, HWND window, const WCHAR* text, const WCHAR* caption, UINT flags) {
  g_seen.texts = {text, caption};
  g_seen.owners = {window};
  return data == flags ? g_seen.answer : 56;
}

struct QnMsgBox : testing::Test {
  QnMsgBox() {
    g_seen = {};
    _QnMsgBoxSetAppData(nullptr, nullptr, W("Recorder"));
    qn::SetOpenMsgBox([](HWND, qn::MsgBoxRequest* request) { return g_seen.open(request); });
  }
  ~QnMsgBox() override {
    _QnMsgBoxSetAppData(nullptr, nullptr, nullptr);
    qn::SetOpenMsgBox(nullptr);
  }
};

TEST_F(QnMsgBox, HasItsButtonsInEachSet) {
  const std::vector<int> sets[16] = {
      {1}, {1, 2}, {3, 4, 5}, {6, 7, 2},      {6, 7},      {4, 2},         {},
      {},  {},     {},        {6, 100, 7, 2}, {6, 7, 101}, {6, 7, 102, 2}, {6, 100, 7, 102, 2},
      {},  {}};
  for (UINT i = 0; i < 256; ++i) {
    const UINT number = i % 16, index = i / 16, flags = number | index << 8;
    const bool known = !sets[number].empty(), beyond = known && index >= sets[number].size();
    const std::vector<int>& shown = sets[known ? number : 0];
    // With nobody to ask, the default button answers; beyond the set the box comes up.
    EXPECT_EQ(QnMsgBoxSetNoUIHook([](const WCHAR* text) { g_seen.texts.push_back(text); }), 1);
    g_seen = {};
    const int answer = beyond ? 77 : known ? shown[index] : 1;
    EXPECT_EQ(QnMsgBox_CustomNoF(nullptr, flags, nullptr, W("T")), answer) << i;
    std::vector<Text> told = {u"T", u"Invalid Message Box parameter...User intervention is needed!!!!"};
    told.resize(beyond ? 2 : 1);
    EXPECT_EQ(g_seen.texts, told);
    QnMsgBoxSetNoUIHook(nullptr);
    g_seen.open = [&](qn::MsgBoxRequest* request) {
      const qn::MsgBoxLayout box = qn::LayOutMsgBox(request, kMetrics, Ruler());
      EXPECT_EQ(box.buttonCount, static_cast<int>(shown.size()));
      EXPECT_EQ(box.defaultButton, std::min(static_cast<int>(index), box.buttonCount - 1));
      EXPECT_EQ(request->flags, known ? flags : flags - number);
      for (int id = 0; id < 400; ++id) {
        const bool button = std::count(shown.begin(), shown.end(), id);
        const bool escape = id == 2 && number != 2 && number != 4 && number != 11;
        const qn::MsgBoxAction action = qn::MsgBoxCommand(request, id, false);
        EXPECT_EQ(action.kind, button || escape ? action.kEnd : action.kNone) << i << " " << id;
        EXPECT_EQ(action.result, button ? id : escape ? 1 : 0);
      }
      return 78;
    };
    EXPECT_EQ(QnMsgBox_CustomNoF(nullptr, flags, nullptr, W("T")), 78);
  }
}

TEST_F(QnMsgBox, HooksBelongToTheApplicationsThread) {
  EXPECT_TRUE(g_hooksWaitForAppData);
  std::thread([] { EXPECT_EQ(QnMsgBoxSetHook(nullptr, 0) + QnMsgBoxSetNoUIHook(nullptr), 0); }).join();
  EXPECT_EQ(QnMsgBoxSetHook(Look, 4) + QnMsgBoxSetNoUIHook(nullptr), 2);  // which leaves this one
  EXPECT_EQ(QnMsgBoxNoF(nullptr, 4, W("T")), 55);
  _QnMsgBoxSetAppData(nullptr, Window(9), Text(200, u'n').c_str());
  EXPECT_EQ(qn::g_AppHwnd, Window(9));
  EXPECT_EQ(qn::MsgBoxAppName(), Text(127, u'n'));
  EXPECT_EQ(QnMsgBox_CustomNoF(nullptr, 4, nullptr, W("T")), 77);
  qn::SetOpenMsgBox(nullptr);
  EXPECT_EQ(QnMsgBox_CustomNoF(nullptr, 4, nullptr, W("T")), -1);
  EXPECT_EQ(QnMsgBoxNoF(nullptr, 4, W("T")), 0);  // there are no windows
}

TEST_F(QnMsgBox, HooksSeeTheWholeBox) {
  DWORD value = 7;
  const Text details(20'000, u'd'), lengthy(5000, u'x');
  const auto with = [](const Text& text, const Text& more) {
    return text + u"\r\n<Details>\r\n" + more + u"\r\n</Details>";
  };
  for (UINT bits = 0; bits < 16; ++bits) {
    const UINT flags = bits << 12 | 0x121;
    QnMsgBoxSetHook(Look, flags);
    const bool check = bits & 1, detailed = bits >= 4;
    EXPECT_EQ(QnMsgBox_CustomExNoF(nullptr, flags, nullptr, nullptr, &value, W("T")), detailed ? 0 : 55);
    EXPECT_EQ(QnMsgBox_TitledF(nullptr, flags, details.c_str(), W("C"), W("%d$%"), 12), check ? 0 : 55);
    const std::vector<Text> seen = {check ? u"T" : detailed ? with(u"12%", details) : u"12%", u"C"};
    EXPECT_TRUE(check || g_seen.texts == seen);
  }
  // Only what is formatted is cut.
  QnMsgBoxF(nullptr, 0, lengthy.c_str());
  EXPECT_EQ(g_seen.texts, (std::vector<Text>{lengthy, u"Recorder"}));
  QnMsgBoxF(nullptr, 0, (u"%%" + lengthy).c_str());
  EXPECT_EQ(g_seen.texts[0], u"%" + lengthy.substr(0, 2046));
  QnMsgBox_CustomNoF(nullptr, QNMB_DETAILS, W(""), W("100 %s"));
  EXPECT_EQ(g_seen.texts[0], with(u"100 %s", u""));
  // Any text may be a record.
  _QnLang_UpdateKernelOnlyLCID(1031);
  static qnlang_t record = {QNLANG_MARKER, 3, {}, {W("one"), W("ichi"), W("eins %d")}};
  const auto* const text = reinterpret_cast<const WCHAR*>(&record);
  QnMsgBox_TitledF(nullptr, QNMB_DETAILS, text, text, text, 5);
  EXPECT_EQ(g_seen.texts, (std::vector<Text>{with(u"eins 5", u"eins %d"), u"eins %d"}));
  g_seen.open = [&](qn::MsgBoxRequest* request) {
    EXPECT_EQ(std::exchange(request->checkText, nullptr), record.text[2]);
    const qn::MsgBoxLayout box = qn::LayOutMsgBox(request, kMetrics, Ruler());
    EXPECT_EQ(box.checkText, qn::messages::DoNotShowAgain.text[2]);
    EXPECT_TRUE(box.linkText == record.text[2] && request->linkTarget == record.text[2]);
    EXPECT_EQ(qn::MsgBoxCommand(request, 310, true).kind, qn::MsgBoxAction::kBrowse);
    EXPECT_EQ(qn::MsgBoxCommand(request, 200, true).buttonText, qn::messages::ButtonDetailsClose.text[2]);
    EXPECT_EQ(qn::MsgBoxCommand(request, 200, true).growth, -static_cast<int>(request->detailsExtra));
    EXPECT_EQ(value, 7u);
    return qn::MsgBoxCommand(request, 2, true).result;
  };
  g_seen.answer = -1;
  QnMsgBoxSetHook(Look, 0xD000);
  EXPECT_EQ(QnMsgBox_CustomExLinkF(nullptr, 0xD000, text, text, &value, text, text, W("T")), 1);
  EXPECT_EQ(value, 1u);
  _QnLang_UpdateKernelOnlyLCID(1033);
}

TEST_F(QnMsgBox, CentresTheBoxAndFindsItsOwner) {
  qn::WindowBackend system = {};
  system.getLastActivePopup = [](HWND window) { return Window(reinterpret_cast<intptr_t>(window) + 1); };
  system.getClassName = [](HWND window, WCHAR* text, int) {
    return static_cast<int>(std::u16string_view(window == Window(1) ? W("Edit") : W("#32770")).copy(text, 9));
  };
  system.getWindowText = [](HWND window, WCHAR* text, int) {
    return static_cast<int>(std::u16string_view(W("Recorder")).copy(text, window == Window(2) ? 7 : 8));
  };
  system.setHook = [](int, HOOKPROC procedure, HANDLE, DWORD) {
    g_seen.live = procedure;
    return reinterpret_cast<HHOOK>(++g_seen.hooks);
  };
  system.unhook = [](HHOOK) { return std::exchange(g_seen.live, nullptr) ? TRUE : FALSE; };
  system.messageBox = [](HWND owner, const WCHAR*, const WCHAR*, UINT) {
    g_seen.owners.push_back(owner);
    return g_seen.open(nullptr);
  };
  qn::SetWindowBackend(&system);
  qn::SetMsgBoxCentring([](HWND window) { g_seen.centred.push_back(window); });
  g_seen.open = [](qn::MsgBoxRequest*) {
    if (g_seen.owners.size() != 1) return 1;
    // A box that opens before the first one is there is not centred; one that opens later is.
    QnMsgBoxNoF(Window(50), 0, W("inner"));
    EXPECT_EQ(g_seen.hooks, 1);
    // No dialog, a dialog of another title, the box.
    for (const intptr_t window : {1, 2, 3}) {
      CWPRETSTRUCT sent = {0, 0, 0, WM_INITDIALOG, Window(window)};
      EXPECT_TRUE(g_seen.centred.empty());
      g_seen.live(0, 0, reinterpret_cast<LPARAM>(&sent));
    }
    EXPECT_FALSE(g_seen.live);
    QnMsgBoxNoF(Window(-1), 0, W("inner"));
    return 5;
  };
  EXPECT_EQ(QnMsgBoxNoF(nullptr, 0, W("outer")), 5);
  _QnMsgBoxSetAppData(nullptr, Window(70), W("Recorder"));
  for (const UINT flags : {4112, 4113}) QnMessageBox(nullptr, nullptr, nullptr, flags);
  EXPECT_EQ(g_seen.hooks, 3);
  EXPECT_FALSE(g_seen.live);
  EXPECT_EQ(g_seen.centred, std::vector<HWND>{Window(3)});
  EXPECT_EQ(g_seen.owners, (std::vector<HWND>{nullptr, Window(50), nullptr, Window(71), Window(71)}));
  qn::SetWindowBackend(nullptr);
}

// The controls from the top, those of a row from the left.
std::vector<RECT> Places(const qn::MsgBoxLayout& box) {
  std::vector<RECT> places = {box.icon, box.message, box.link, box.check};
  for (int i = 0; i < box.buttonCount; ++i) places.push_back(box.buttons[i].place);
  places.push_back(box.details);
  return places;
}

TEST(QnMsgBoxLayout, IsAsWorkedOutByHand) {
  DWORD value = 0;
  const Text text = Text(92, u'x') + u"\r\n" + Text(120, u'x'), check = u"Do it and do &not ask";
  qn::MsgBoxRequest request = {0xD124, text.c_str(), W("x\ny\nz"), 0, 0, 0, check.c_str(), &value};
  const qn::MsgBoxLayout box = qn::LayOutMsgBox(&request, kMetrics, Ruler());
  const RECT expected[] = {{10, 10, 42, 42},     {52, 10, 990, 70},    {},
                           {52, 80, 282, 95},    {650, 105, 760, 128}, {765, 105, 875, 128},
                           {880, 105, 990, 128}, {10, 148, 990, 298}};
  ASSERT_EQ(Places(box).size(), std::size(expected));
  EXPECT_EQ(memcmp(Places(box).data(), expected, sizeof expected), 0);
  EXPECT_EQ(std::tuple(box.iconId, box.client.cx, box.client.cy, request.detailsExtra),
            std::tuple(32514, 1000, 138, 170u));
}

TEST(QnMsgBoxLayout, StaysOnAnyScreenAndApartOnUsualOnes) {
  const auto below = [](int limit) {
    return static_cast<int>(qntest::Random()() % static_cast<size_t>(limit));
  };
  DWORD value = 0;
  for (int round = 0; round < 4000; ++round) {
    const bool usual = round % 2;
    Text text(static_cast<size_t>(below(round % 100 ? 3000 : 1 << 20)), u'x');
    for (WCHAR& c : text) c = below(20) ? c : u'\n';
    const WCHAR* const shown = text.c_str();
    const DWORD flags = static_cast<DWORD>(below(1 << 16));
    qn::MsgBoxRequest request = {flags, shown, shown};
    request.checkText = below(2) ? nullptr : shown;
    request.checkValue = &value;
    request.linkTarget = below(2) ? nullptr : shown;
    const SIZE screen = usual ? SIZE{640 + below(3000), 480 + below(2000)} : SIZE{below(300), below(300)};
    const SIZE icon = {below(60), below(60)}, button = {below(90), 1 + below(30)};
    const qn::MsgBoxLayout box = qn::LayOutMsgBox(
        &request, {screen, icon, button, below(15), 1 + below(20), below(20), below(9)}, Ruler());
    const LONG bottom = box.client.cy + static_cast<LONG>(request.detailsExtra);
    ASSERT_TRUE(box.client.cx <= screen.cx && bottom <= screen.cy) << round;
    RECT before = {};
    for (const RECT& place : Places(box)) {
      ASSERT_TRUE(0 <= place.left && place.left <= place.right && place.right <= box.client.cx) << round;
      ASSERT_TRUE(0 <= place.top && place.top <= place.bottom && place.bottom <= bottom) << round;
      if (!usual || place.top == place.bottom) continue;
      ASSERT_TRUE(before.bottom <= place.top || before.right <= place.left) << round;
      before = place;
    }
  }
}

}  // namespace
