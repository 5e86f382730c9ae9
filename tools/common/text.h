// What a tool says of failures, warnings and damage, in the user's language: records of the tools' own
// catalogues (tools/po, see docs/translating.md) with what is put into them.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "qn/platform/locale.h"
#include "qn/text/qnlang.h"
#include "tools/messages.h"

namespace qntool {

// False for ill-formed bytes.
bool IsUtf8(std::string_view text);

// Sets the language of messages; until then they are English.
void SetMessageLanguage(LCID lcid);

// A text that people read in their language and programs in English.
class Message {
 public:
  // The empty text.
  Message() = default;

  // A record of the catalogues and its inserts %1, %2, ..., at most four.
  Message(const qnlang_t& record, std::initializer_list<Message> inserts = {})
      : record_(&record), inserts_(inserts) {}

  // A text that is the same in all languages: a name, a command.
  explicit Message(const std::string& text) : shown_(text), english_(text) {}

  // A number in groups of digits, in the dress of the user's language: "1.234.567"; for programs "1,234,567".
  static Message Number(uint64_t number);

  // "1,234 bytes"
  static Message Bytes(uint64_t number);

  std::string Shown() const { return record_ ? Compose(UserLanguage()) : shown_; }
  std::string English() const { return record_ ? Compose(nullptr) : english_; }

 private:
  // Of a record, in the language of a handle, English for null.
  std::string Compose(HQNLANG handle) const;

  // Null as long as it is not set.
  static HQNLANG UserLanguage();

  const qnlang_t* record_ = nullptr;
  std::vector<Message> inserts_;
  // Without a record.
  std::string shown_;
  std::string english_;
};

}  // namespace qntool
