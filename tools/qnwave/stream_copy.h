// Frames of files in new files, sample by sample as they are, through the library's audio streams.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "tools/common/options.h"
#include "tools/qnwave/audio_input.h"
#include "tools/qnwave/target.h"

namespace qnwave {

constexpr qntool::Option kToEndOption = {
    "to-end", nullptr,
    "take all bytes from the first sample to the end of a file, whatever its header states"};

// OpenAudio, with --to-end of the command line; an exit code.
int OpenSource(const qntool::Arguments& arguments, const std::string& name, AudioSource* source);

// A range of a file's frames.
struct Piece {
  const AudioSource* source;
  uint64_t first;
  uint64_t frames;
};

// The format in which samples of a file are kept: the file's own, in the type that every program reads.
AudioFormat KeptFormat(const AudioFormat& format);

// Writes pieces one after the other: to one target with all channels, to several with a channel each, in
// their order. All pieces have the same rate and channels. The targets appear when all of them are whole. An
// exit code; what failed is reported, and what was written is told.
int WritePieces(std::span<const Piece> pieces, std::span<const Target> targets,
                const qntool::Arguments& arguments);

}  // namespace qnwave
