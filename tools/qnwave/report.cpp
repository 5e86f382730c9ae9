#include "tools/qnwave/report.h"

#include <cstdio>

#include "qn/settings/qnerror.h"
#include "qn/settings/qnstatus.h"

namespace qnwave {
namespace {

struct StatusRow {
  HRESULT status;
  const char* text;
};

constexpr StatusRow kStatusRows[] = {
    {E_NOTIMPL, "There is no conversion between these sample types."},
    {E_FAIL, "The operation failed."},
    {E_ACCESSDENIED, "Access is denied."},
    {E_HANDLE, "The file is not open."},
    {E_OUTOFMEMORY, "There is not enough memory."},
    {E_INVALIDARG, "A value is not valid."},
    {QN_E_MEDIA_TYPE, "The audio format is not supported."},
    {QN_E_DISK_FULL, "The disk is full."},
    {QN_E_BUSY, "The file is busy."},
    {QN_E_FILE_CREATE, "The file could not be created."},
    {QN_E_FILE_OPEN, "The file could not be opened."},
    {QN_E_FILE_READ, "The file could not be read."},
    {QN_E_FILE_WRITE, "The file could not be written."},
    {QN_E_NOT_FOUND, "It was not found."},
    {QN_E_FILE_FORMAT, "The file is damaged or of an unknown format."},
    {QN_E_CANCELLED, "Interrupted."},
    {QN_E_FILE_NAME, "The file name is not valid."},
    {QN_E_FILE_UNSUPPORTED, "The format of the file is not supported."},
    {QN_E_TOO_MANY_FILES, "Too many files are open."},
    {QN_E_FILE_EXISTS, "A file with that name exists already."},
    {QN_E_FILE_TOO_LARGE, "The file would be larger than it can be."},
    {QN_E_FILE_SHARING, "Another application has the file open."},
    {QN_E_CHUNK_SIZE, "No header fits in front of the samples."},
    {QN_E_ALREADY_EXISTS, "It exists already."},
};

}  // namespace

const char* StatusText(HRESULT status) {
  for (const StatusRow& row : kStatusRows) {
    if (row.status == status) return row.text;
  }
  return "The operation failed.";
}

HRESULT SystemStatus(HRESULT fallback) {
  const DWORD error = GetLastError();
  if (error == ERROR_FILE_TOO_LARGE) return QN_E_FILE_TOO_LARGE;
  const HRESULT status = QnErrorHandler_TranslateWin32Error(error);
  return status == S_OK || status == E_FAIL ? fallback : status;
}

void ReportError(std::string_view file, HRESULT status, std::string_view sentence) {
  char code[16];
  std::snprintf(code, sizeof(code), " (0x%08X)", static_cast<unsigned>(status));
  ReportError(file, std::string(sentence.empty() ? StatusText(status) : sentence) + code);
}

void ReportOpenError(std::string_view file) {
  const DWORD error = GetLastError();
  if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) {
    ReportError(file, QN_E_FILE_OPEN, "The file could not be opened. It does not exist.");
    return;
  }
  const HRESULT status = SystemStatus(QN_E_FILE_OPEN);
  std::string sentence = StatusText(QN_E_FILE_OPEN);
  if (status != QN_E_FILE_OPEN) sentence += std::string(" ") + StatusText(status);
  ReportError(file, status, sentence);
}

}  // namespace qnwave
