// The peak object: the peak file of one media, the table in memory, and the audio beneath them.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "qn/media/peak.h"
#include "qn/platform/file.h"
#include "qn/platform/sync.h"

namespace qn {

// The start of a peak file, little-endian. Its blocks follow at `headerSize`, each with the minimum and the
// maximum of every channel.
#pragma pack(push, 4)
struct PeakFileHeader {
  DWORD magic;
  DWORD version;
  DWORD headerSize;
  DWORD sourceTime;  // of the media, as QnDosGetDateTime packs it; 0 while the file is built
  DWORD bits;
  DWORD channels;
  DWORD framesPerPeak;
  LONGLONG sourceLength;  // frames that the blocks cover
  DWORD sourceTimeUtc;    // 0 in files of older versions
  BYTE reserved[24];
};
#pragma pack(pop)
static_assert(sizeof(PeakFileHeader) == 64 && offsetof(PeakFileHeader, sourceLength) == 28 &&
              offsetof(PeakFileHeader, sourceTimeUtc) == 36);

constexpr DWORD kPeakMagic = 0x4B504E51;  // "QNPK"
constexpr DWORD kPeakVersion = 1;
constexpr DWORD kLeastFramesPerPeak = 64;
constexpr DWORD kMostFramesPerPeak = 0x1000000;

// How many blocks cover a length, the last one in part; none for a length below 1.
constexpr uint64_t CountPeakBlocks(int64_t length, DWORD framesPerPeak) {
  return length < 1 ? 0 : (static_cast<uint64_t>(length) + framesPerPeak - 1) / framesPerPeak;
}

// The last block of a write, whose frames did not fill it: a next write that goes on there needs no reading.
struct PartialPeak {
  DWORD peakType = 0;
  DWORD channels = 0;
  DWORD valueIndex = 0xFFFFFFFF;
  LONGLONG end = 0;  // the frame behind it
  std::vector<uint8_t> values;
};

class PeakBlocks;

class CQnAudioPeak final : public IQnAudioPeak {
 public:
  // `memFramesPerPeak` as given; see Start for the rest of the setting up.
  CQnAudioPeak(LONG flags, DWORD framesPerPeak, LONG memFramesPerPeak);
  CQnAudioPeak(const CQnAudioPeak&) = delete;
  CQnAudioPeak& operator=(const CQnAudioPeak&) = delete;

  HRESULT QueryInterface(const GUID& id, void** object) override;
  ULONG AddRef() override;
  ULONG Release() override;

  BOOL IsValid(DWORD flags) override;
  HRESULT GetPeakFileName(WCHAR* name, LONG size) override;
  HRESULT Build(DWORD flags, IQnAudioPeakProgress* progress) override;
  HRESULT WriteAudio(const void* buffer, LONGLONG start, DWORD frames, QNSAMPLETYPE type) override;
  HRESULT Truncate(LONGLONG frames) override;
  HRESULT Sync(DWORD reserved) override;
  HRESULT GetReader(CQnAudioPeakStreamReader** out) override;
  HRESULT GetHeader(void* out, DWORD size) override;
  HRESULT SetKeepOpen(DWORD keepOpen, LONG openNow) override;
  HRESULT GetInfo(DWORD* sourceType, DWORD* framesPerPeak, DWORD* peakType, DWORD* memFramesPerPeak,
                  DWORD* memPeakType) override;
  HRESULT GetPeaks(LONGLONG start, LONGLONG frames, void* out, LONG pixels, DWORD* got) override;
  HRESULT GetPeaksEx(LONGLONG start, LONGLONG frames, QNSAMPLETYPE type, void* out, LONG pixels,
                     DWORD* got) override;
  HRESULT GetPeaksAligned(LONGLONG start, LONGLONG framesPerPixel, QNSAMPLETYPE type, void* out, LONG pixels,
                          DWORD* got) override;
  HRESULT ReadSamples(LONGLONG start, DWORD type, void* out, DWORD frames, DWORD* got) override;
  HRESULT NotImplemented() override;
  HRESULT UpdateHeader() override;

  // Gives the object its reader and folder, opens the peak file and asks whether it is valid: 0, or 1 when
  // it has to be built. With `ownsReader` the reader is the object's from now on, also on failure.
  HRESULT Start(CQnAudioPeakStreamReader* reader, bool ownsReader, const WCHAR* tempFolder);
  HRESULT HandleMediaRename(const WCHAR* newName);

 private:
  // Released by its last reference alone.
  ~CQnAudioPeak();

  // The critical section of a thread-safe object while this lives.
  class Guard {
   public:
    explicit Guard(CQnAudioPeak& peak) : section_(peak.singleThread_ ? nullptr : &peak.lock_) {
      if (section_) EnterCriticalSection(section_);
    }
    ~Guard() {
      if (section_) LeaveCriticalSection(section_);
    }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

   private:
    CRITICAL_SECTION* section_;
  };

  // A host's call on the file and what stands on it: under the lock of a thread-safe object, and with the
  // file closed at its end unless it is kept open.
  class Operation {
   public:
    explicit Operation(CQnAudioPeak& peak) : guard_(peak), peak_(peak) {}
    ~Operation() { peak_.CloseUnlessKept(); }
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;

   private:
    Guard guard_;
    CQnAudioPeak& peak_;
  };

  // peak_file.cpp: the name, the file and its header.
  HRESULT MakePeakFileName();
  HRESULT Open();          // 0 when the file is open and its header read, 1 when there is none to use
  void Close();            // ends the view too
  void CloseUnlessKept();  // at the end of an operation
  HRESULT Create(DWORD peakType);
  bool WriteEmptyFile();  // the header and room for the blocks
  HRESULT WriteHeader();
  // The media's two times; true if the header's agree with them.
  bool GetSourceTimes(DWORD* local, DWORD* utc) const;
  bool WriteAt(int64_t offset, const void* bytes, DWORD count);
  // How many bytes came, at most `count`; the file is not read behind its end.
  DWORD ReadAt(int64_t offset, void* bytes, DWORD count);

  DWORD PeakType() const { return header_.bits == 16 ? QNST_PCM16 : QNST_PCM8S; }
  // 64 bits, for channel counts come from files too.
  uint64_t BlockBytes() const { return uint64_t{header_.channels} * 2 * (header_.bits / 8); }
  int64_t BlockOffset(uint64_t block) const {
    return static_cast<int64_t>(header_.headerSize + block * BlockBytes());
  }

  // peak_build.cpp
  HRESULT Rebuild(DWORD flags, IQnAudioPeakProgress* progress);
  HRESULT Scan(DWORD flags, IQnAudioPeakProgress* progress);
  // Reduces the audio to blocks of the file; `*covered` becomes the frames that they cover.
  HRESULT ScanBlocks(DWORD flags, IQnAudioPeakProgress* progress, int64_t* covered);
  HRESULT BuildMemoryTable(bool isForced);
  void FreeMemoryTable();

  // peak_view.cpp: the mapped file, in single-thread mode.
  void MapView();  // nothing changes if that fails
  void UnmapView();

  // peak_request.cpp
  class FileBlocks;
  bool HasUsableHeader() const;  // its blocks can be understood, and have the source's channels
  HRESULT OpenForRequest();      // S_FALSE when the file says that it has nothing yet
  // The blocks up to `end`, as far as the open file has them: from the view, or read as they are needed. May
  // throw std::bad_alloc.
  HRESULT OpenBlocks(uint64_t end, std::unique_ptr<PeakBlocks>* blocks);
  HRESULT RequestFromTable(int64_t start, int64_t frames, QNSAMPLETYPE type, void* out, LONG pixels,
                           DWORD* got);
  HRESULT RequestFromFile(int64_t start, int64_t frames, QNSAMPLETYPE type, void* out, LONG pixels,
                          DWORD* got);
  // peak_request_audio.cpp
  HRESULT RequestFromAudio(int64_t start, int64_t frames, QNSAMPLETYPE type, void* out, LONG pixels,
                           DWORD* got);

  std::atomic<LONG> references_ = 1;
  bool memoryOnly_;
  bool memoryValid_ = false;
  bool readOnly_;
  bool shareWrite_;
  bool alwaysTemp_;
  bool tempFallback_;
  bool hidden_;
  bool keepOpen_ = true;
  bool isScanning_ = false;  // a host may paint from its progress, which closes no file that is being built
  bool singleThread_;
  bool ownsReader_ = false;
  CQnAudioPeakStreamReader* reader_ = nullptr;
  std::u16string peakFileName_;  // empty until it was computed
  std::u16string tempFolder_;    // ends in a backslash
  DWORD requestedFramesPerPeak_;
  LONG memFramesPerPeak_;  // negative: no table
  DWORD memBlocks_ = 0;
  DWORD memBuiltFramesPerPeak_ = 0;
  std::vector<int16_t> memTable_;  // minimum and maximum of each channel, block by block
  HANDLE file_ = INVALID_HANDLE_VALUE;
  PeakFileHeader header_ = {};
  const uint8_t* view_ = nullptr;
  uint64_t viewBytes_ = 0;
  bool dirty_ = false;  // the header must be rewritten; stays set once it is
  CRITICAL_SECTION lock_;
  PartialPeak partial_;
};

}  // namespace qn
