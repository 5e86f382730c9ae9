// Where the controls of a custom box go.

#include <algorithm>

#include "qn/settings/qnmsgbox_internal.h"
#include "qn/text/messages_internal.h"
#include "qn/text/text_internal.h"

namespace qn {
namespace {

// Sizes are computed in 64 bits: a text may be of any length and its measure of any width.
struct TextBlock {
  int64_t width;
  int64_t lines;
};

// The block that a text fills when it is wrapped at `maxWidth`. `slack` is added to each of its lines, since
// wrapping at words needs more room than the sum of the widths.
TextBlock Measure(std::u16string_view text, bool mnemonics, int64_t slack, int64_t maxWidth,
                  const TextMeasurer& measurer) {
  constexpr int64_t kManyLines = 1 << 24;  // beyond any screen
  TextBlock block = {0, 0};
  for (size_t start = 0; start <= text.size() && block.lines < kManyLines;) {
    const size_t end = std::min(text.find('\n', start), text.size());
    std::u16string_view line = text.substr(start, end - start);
    if (line.ends_with('\r')) line.remove_suffix(1);
    const int64_t width = std::max(measurer.Width(line, mnemonics), 0) + slack;
    block.width = std::max(block.width, width);
    block.lines += std::max<int64_t>((width + maxWidth - 1) / maxWidth, 1);
    start = end + 1;
  }
  return {std::min(block.width, maxWidth), std::min(block.lines, kManyLines)};
}

// The texts and ids of the box, and the button that is its default.
MsgBoxLayout Contents(const MsgBoxRequest& request) {
  constexpr DWORD kFirstIcon = 32513;
  const DWORD icon = (request.flags >> 4) & 0xF;
  MsgBoxLayout box = {};
  box.caption = MsgBoxCaption(request);
  box.iconId = icon >= 1 && icon <= 4 ? static_cast<int>(kFirstIcon + icon - 1) : 0;
  box.linkText = request.linkText ? request.linkText : request.linkTarget;
  if (request.flags & QNMB_CHECK) {
    box.checkText =
        request.checkText ? request.checkText : QnGetString(KernelLanguage(), messages::DoNotShowAgain);
  }
  const auto add = [&box](int id, const WCHAR* text) { box.buttons[box.buttonCount++] = {id, text, {}}; };
  for (const MsgBoxButton& button : MsgBoxButtons(request.flags)) {
    add(button.id, QnGetString(KernelLanguage(), *button.text));
  }
  box.defaultButton = std::min(static_cast<int>(MsgBoxDefaultIndex(request.flags)), box.buttonCount - 1);
  if (HasDetailsButton(request)) add(kMsgBoxDetailsButton, DetailsButtonText(request.detailsOpen));
  return box;
}

int64_t ButtonWidth(const MsgBoxLayout& box, bool details, const MsgBoxMetrics& metrics,
                    const TextMeasurer& measurer) {
  int64_t widest = 0;
  const auto count = [&](const WCHAR* text) {
    widest = std::max<int64_t>(widest, measurer.Width(text, true));
  };
  for (int i = 0; i < box.buttonCount; ++i) count(box.buttons[i].text);
  if (details) {  // the button changes its text
    count(DetailsButtonText(false));
    count(DetailsButtonText(true));
  }
  return std::max<int64_t>(widest + metrics.averageCharWidth, metrics.button.cx);
}

}  // namespace

const WCHAR* DetailsButtonText(bool open) {
  return QnGetString(KernelLanguage(), open ? messages::ButtonDetailsClose : messages::ButtonDetailsOpen);
}

MsgBoxLayout LayOutMsgBox(MsgBoxRequest* request, const MsgBoxMetrics& metrics,
                          const TextMeasurer& measurer) {
  PrepareMsgBox(request);
  MsgBoxLayout box = Contents(*request);
  const bool details = HasDetailsButton(*request);
  const int64_t margin = metrics.margin, gap = metrics.buttonGap, lineHeight = metrics.lineHeight;
  const int64_t screenWidth = std::max(metrics.screen.cx, 0), screenHeight = std::max(metrics.screen.cy, 0);
  const int64_t slack = metrics.averageCharWidth, buttonHeight = metrics.button.cy;

  // Without an icon the message stands where the icon would.
  const int64_t iconHeight = box.iconId ? metrics.icon.cy : 0;
  const int64_t left = margin + (box.iconId ? metrics.icon.cx + margin : 0);
  const int64_t maxWidth = std::max<int64_t>(screenWidth - left - margin, 1);
  const int64_t shares = details ? 8 : 4;  // the details get half of the screen
  const int64_t maxMessage = screenHeight * 3 / shares, maxLine = screenHeight / shares;
  const auto measure = [&](const WCHAR* text, bool mnemonics, int64_t more, int64_t width) {
    return text ? Measure(text, mnemonics, more, width, measurer) : TextBlock{0, 0};
  };
  const TextBlock message = measure(request->text, false, slack, maxWidth);
  const TextBlock link = measure(box.linkText, false, slack, maxWidth);
  const TextBlock check = measure(box.checkText, true, 3 * slack, maxWidth);  // with the mark

  // The check box takes the left; the buttons then keep to the right, behind the column of the icon.
  const int64_t rowLeft = box.checkText ? left : margin;
  const int64_t count = box.buttonCount, gaps = (count - 1) * gap;
  int64_t buttonWidth = ButtonWidth(box, details, metrics, measurer);
  int64_t width = std::max(left + std::max({message.width, link.width, check.width}),
                           rowLeft + count * buttonWidth + gaps) +
                  margin;
  if (details) width = std::max(width, screenWidth * 3 / 8);
  width = std::clamp<int64_t>(screenWidth, 0, width);
  buttonWidth = std::clamp<int64_t>((width - rowLeft - margin - gaps) / count, 0, buttonWidth);
  const int64_t rowWidth = count * buttonWidth + gaps;

  // Rows from the top, each with a margin above it; the last one has one below it too. Where the screen is
  // too low for all, a link line and a check box of one share come before the rest of a long message.
  int64_t height = buttonHeight + 2 * margin;
  const auto take = [&](int64_t wanted) {
    const int64_t taken = std::clamp<int64_t>(screenHeight - height - margin, 0, wanted);
    height += taken + margin;
    return taken;
  };
  const int64_t linkHeight = box.linkText ? take(std::min(link.lines * lineHeight, maxLine)) : 0;
  const int64_t checkHeight = box.checkText ? take(std::min(check.lines * lineHeight, maxLine)) : 0;
  // A link line stands where otherwise a blank line follows the message.
  const int64_t extraLines = box.linkText ? 0 : 1;
  const int64_t textHeight = std::min((message.lines + extraLines) * lineHeight, maxMessage);
  const int64_t bodyHeight = take(std::max(textHeight, iconHeight));
  height = std::clamp<int64_t>(screenHeight, 0, height);

  // The details open below the buttons, in what the screen still has.
  int64_t extra = 0;
  if (details) {
    const int64_t maxDetails = screenHeight * 3 / 8;
    const TextBlock lines = measure(request->details, false, slack, std::max<int64_t>(width - 2 * margin, 1));
    extra = std::clamp(lines.lines * lineHeight, maxDetails * 2 / 3, maxDetails) + 2 * margin;
    extra = std::min(extra, screenHeight - height);
  }
  request->detailsExtra = static_cast<DWORD>(extra);

  const auto place = [&](int64_t x, int64_t y, int64_t cx, int64_t cy) {
    const auto across = [&](int64_t at) { return static_cast<LONG>(std::clamp<int64_t>(at, 0, width)); };
    const auto down = [&](int64_t at) {
      return static_cast<LONG>(std::clamp<int64_t>(at, 0, height + extra));
    };
    return RECT{across(x), down(y), across(x + std::max<int64_t>(cx, 0)), down(y + cy)};
  };
  box.client = {static_cast<LONG>(width), static_cast<LONG>(height)};
  int64_t y = margin;
  if (box.iconId) box.icon = place(margin, y, metrics.icon.cx, std::min(iconHeight, bodyHeight));
  box.message = place(left, y, width - left - margin, std::min(textHeight, bodyHeight));
  y += bodyHeight + margin;
  if (box.linkText) {
    box.link = place(left, y, link.width, linkHeight);
    y += linkHeight + margin;
  }
  if (box.checkText) box.check = place(left, y, check.width, checkHeight);
  int64_t x = box.checkText ? width - margin - rowWidth : (width - rowWidth) / 2;
  for (int i = 0; i < box.buttonCount; ++i) {
    box.buttons[i].place = place(x, height - margin - buttonHeight, buttonWidth, buttonHeight);
    x += buttonWidth + gap;
  }
  if (details) {
    box.details =
        place(margin, height + margin, width - 2 * margin, std::max<int64_t>(extra - 2 * margin, 0));
  }
  return box;
}

}  // namespace qn
