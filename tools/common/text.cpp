#include "tools/common/text.h"

#include <iterator>
#include <memory>

#include "qn/platform/module.h"
#include "qn/platform/text.h"
#include "qn/text/qnnumber.h"
#include "qn/text/qnprint.h"

namespace qntool {

namespace {

struct CloseLanguage {
  void operator()(HQNLANG handle) const { QnLang_Close(handle); }
};
std::unique_ptr<tQNLANG, CloseLanguage> language;

}  // namespace

bool IsUtf8(std::string_view text) {
  // What does not survive the way through UTF-16 is ill-formed.
  return qn::ToUtf8(qn::FromUtf8(text)) == text;
}

void SetMessageLanguage(LCID lcid) {
  HQNLANG handle = nullptr;
  QnLang_Open(&handle, GetModuleHandleW(nullptr), lcid, 0);
  language.reset(handle);
}

HQNLANG Message::UserLanguage() {
  return language.get();
}

Message Message::Number(uint64_t number) {
  WCHAR dressed[64];
  QnDWordLongToTextN(number, dressed, 64, TRUE);
  Message message;
  message.shown_ = qn::ToUtf8(dressed);
  message.english_ = std::to_string(number);
  for (size_t i = message.english_.size(); i > 3; i -= 3) message.english_.insert(i - 3, 1, ',');
  return message;
}

Message Message::Bytes(uint64_t number) {
  return Message(number == 1 ? messages::Byte : messages::Bytes, {Number(number)});
}

std::string Message::Compose(HQNLANG handle) const {
  const std::u16string format = QnGetString(handle, *record_);
  std::u16string inserts[4];
  size_t room = format.size() + 1;
  for (size_t i = 0; i < inserts_.size() && i < std::size(inserts); ++i) {
    inserts[i] = qn::FromUtf8(handle ? inserts_[i].Shown() : inserts_[i].English());
    room += inserts[i].size();
  }
  std::u16string text(room, u'\0');
  const int length = QnComposeStr(text.data(), static_cast<int>(room), format.c_str(), inserts[0].c_str(),
                                  inserts[1].c_str(), inserts[2].c_str(), inserts[3].c_str());
  text.resize(static_cast<size_t>(length));
  return qn::ToUtf8(text);
}

}  // namespace qntool
