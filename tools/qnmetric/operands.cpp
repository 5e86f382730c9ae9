#include "tools/qnmetric/operands.h"

#include "qn/platform/text.h"
#include "tools/common/report.h"
#include "tools/common/text.h"

namespace qnmetric {
namespace {

using namespace qntool;

// Applications open their settings by paths shorter than this.
constexpr size_t kPathSize = 260;

bool IsName(const std::string& text) {
  return !text.empty() && text.find('\\') == std::string::npos;
}

// What is wrong, if anything; else `*place`, which has its company, is filled in.
std::string ReadPlace(const Arguments& arguments, size_t least, size_t most, size_t file, Place* place) {
  const auto& operands = arguments.Operands();
  const auto key = std::string(arguments.Value("key").value_or(""));
  if (operands.size() < least)
    return operands.size() < 2 ? "give an application and its version" : "an operand is missing";
  if (operands.size() > most) return "there is no use for " + Quoted(operands[most]);
  for (size_t i = 0; i < operands.size(); ++i) {
    if (i != file && !IsUtf8(operands[i])) return Quoted(operands[i]) + " is not valid UTF-8";
  }
  if (!IsUtf8(key)) return Quoted(key) + " is not valid UTF-8";
  if (!IsName(operands[0])) return Quoted(operands[0]) + " is no name of an application";
  const auto version = ReadVersion(operands[1]);
  if (!version) return Quoted(operands[1]) + " is no version: MAJOR.MINOR, such as 2026.0, or none";
  if (!key.empty() && key.find_first_not_of('\\') == std::string::npos)
    return Quoted(key) + " is no name of a key";
  place->application = qn::FromUtf8(operands[0]);
  place->version = *version;
  place->subKey = qn::FromUtf8(key);
  if (place->Path().size() >= kPathSize)
    return "the names of company, application and key are too long together";
  return "";
}

}  // namespace

int Usage(const char* command, const std::string& mistake) {
  ReportUsage(command, mistake);
  return kExitUsage;
}

std::optional<std::u16string> ReadCompany(const char* command, const Arguments& arguments) {
  const auto company = std::string(arguments.Value("company").value_or(kCompanyName));
  if (IsName(company) && IsUtf8(company) && RootOf(qn::FromUtf8(company)).size() < kPathSize)
    return qn::FromUtf8(company);
  Usage(command, Quoted(company) + " is no name of a company");
  return std::nullopt;
}

std::optional<Place> ReadPlace(const char* command, const Arguments& arguments, size_t least, size_t most,
                               size_t file) {
  const auto company = ReadCompany(command, arguments);
  if (!company) return std::nullopt;
  Place place = {*company};
  const std::string mistake = ReadPlace(arguments, least, most, file, &place);
  if (mistake.empty()) return place;
  Usage(command, mistake);
  return std::nullopt;
}

}  // namespace qnmetric
