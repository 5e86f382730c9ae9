#include "tools/qnmetric/settings_text.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <utility>

#include "qn/platform/text.h"
#include "tools/common/options.h"

namespace qnmetric {
namespace {

using namespace qntool;

// The registry's limits, so that what is wrong shows before the first setting is stored.
constexpr size_t kMaxKeyName = 255;
constexpr size_t kMaxLevels = 512;
constexpr size_t kMaxName = 16'383;
constexpr size_t kMaxBytes = 64 << 20;

// A name as it stands in front of "=".
std::string PrintName(const std::u16string& name) {
  const std::string bytes = qn::ToUtf8(name);
  const bool isPlain = !bytes.empty() && std::all_of(bytes.begin(), bytes.end(), [](unsigned char c) {
    return c < 0x80 && (std::isalnum(c) || c == '_' || c == '-' || c == '.');
  });
  return isPlain ? bytes : PrintText(name);
}

// The names of a path; doubled, leading and trailing backslashes count for nothing.
std::vector<std::u16string> KeysOf(const std::u16string& path) {
  std::vector<std::u16string> keys(1);
  for (const WCHAR c : path) {
    if (c != u'\\') {
      keys.back() += c;
    } else if (!keys.back().empty()) {
      keys.emplace_back();
    }
  }
  if (keys.back().empty()) keys.pop_back();
  return keys;
}

// As the registry compares names.
std::u16string Folded(std::u16string name) {
  for (WCHAR& c : name) {
    if (c >= u'a' && c <= u'z') c = static_cast<WCHAR>(c - u'a' + u'A');
  }
  return name;
}

class Reader {
 public:
  explicit Reader(const Place& place) : levels_(KeysOf(place.Path()).size()) {}

  // Takes the next line; what is wrong with it, if anything.
  std::optional<Message> TakeLine(std::string_view line) {
    ++line_;
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (!IsUtf8(line)) return messages::NotUtf8;
    if (line.find('\0') != std::string_view::npos) return messages::NullCharacter;
    if (line.empty() || line[0] == '#') return std::nullopt;
    return line[0] == '[' ? TakeKey(line.substr(1)) : TakeSetting(line);
  }

  int Line() const { return line_; }

  Settings settings;

 private:
  std::optional<Message> TakeKey(std::string_view line) {
    const auto path = TakeText(&line);
    if (!path || line != "]") return messages::NoSetting;
    const auto keys = KeysOf(*path);
    if (keys.empty() && !path->empty()) return messages::KeyNamesNothing;
    key_.clear();
    bool isLong = levels_ + keys.size() > kMaxLevels;
    for (const std::u16string& key : keys) {
      isLong |= key.size() > kMaxKeyName;
      key_ = Joined(key_, key);
    }
    if (!isLong) return std::nullopt;
    return Message(messages::KeyTooLong, {Message::Number(kMaxKeyName), Message::Number(kMaxLevels)});
  }

  std::optional<Message> TakeSetting(std::string_view line) {
    std::optional<std::u16string> name;
    if (line[0] == '"') {
      name = TakeText(&line);
    } else if (const size_t length = line.find(' '); length != 0 && length != std::string_view::npos) {
      name = qn::FromUtf8(line.substr(0, length));
      line.remove_prefix(length);
    }
    if (!name || line.substr(0, 3) != " = ") return messages::NoSetting;
    auto setting = ReadSetting(line.substr(3));
    if (!setting) return messages::NoSetting;
    if (name->size() > kMaxName) return Message(messages::NameTooLong, {Message::Number(kMaxName)});
    if (setting->data.size() > kMaxBytes)
      return Message(messages::ValueTooLarge, {Message::Bytes(kMaxBytes)});
    const auto [earlier, isNew] = lines_.try_emplace({Folded(key_), Folded(*name)}, line_);
    if (!isNew)
      return Message(messages::SettingTwice, {Message::Number(static_cast<uint64_t>(earlier->second))});
    settings.push_back({key_, std::move(*name), std::move(*setting)});
    return std::nullopt;
  }

  const size_t levels_;
  int line_ = 0;
  std::u16string key_;
  std::map<std::pair<std::u16string, std::u16string>, int> lines_;
};

}  // namespace

std::string PrintSettings(const Settings& settings) {
  std::string text;
  std::u16string last;
  for (const auto& [key, name, setting] : settings) {
    if (key != last) text += "[" + PrintText(key) + "]\n";
    text += PrintName(name) + " = " + PrintSetting(setting) + "\n";
    last = key;
  }
  return text;
}

std::optional<Settings> ReadSettings(std::string_view text, const Place& place, Mistake* mistake) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (text.substr(0, kByteOrderMark.size()) == kByteOrderMark) text.remove_prefix(kByteOrderMark.size());
  Reader reader(place);
  for (const std::string_view line : Split(text, '\n')) {
    if (const auto reason = reader.TakeLine(line)) {
      *mistake = {reader.Line(), *reason};
      return std::nullopt;
    }
  }
  return std::move(reader.settings);
}

}  // namespace qnmetric
