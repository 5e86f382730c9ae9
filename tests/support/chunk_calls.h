// The calls of a family of chunk functions under one name each, for tests that run on both families.
#pragma once

#define QN_CHUNK_CALLS(family)                                            \
  static constexpr auto ReadFileID = family##_ReadFileID;                 \
  static constexpr auto ReadHeader = family##_ReadChunkHeader;            \
  static constexpr auto ReadListHeader = family##_ReadListHeader;         \
  static constexpr auto ReadData = family##_ReadData;                     \
  static constexpr auto ReadBounded = family##_ReadDataBounded;           \
  static constexpr auto ReadAlloc = family##_ReadDataAlloc;               \
  static constexpr auto Save = family##_SaveLocation;                     \
  static constexpr auto Restore = family##_RestoreLocation;               \
  static constexpr auto Start = family##_SeekDataStart;                   \
  static constexpr auto Skip = family##_SkipChunk;                        \
  static constexpr auto Find = family##_FindChunkHeader;                  \
  static constexpr auto FindInForm = family##_FindChunkHeaderInRIFF;      \
  static constexpr auto FindList = family##_FindListChunk;                \
  static constexpr auto FindListInForm = family##_FindListChunkFromStart; \
  static constexpr auto Count = family##_GetNumListEntries;               \
  static constexpr auto Seek = family##_SeekListEntry;                    \
  static constexpr auto SetSize = family##_SetRIFFSize;                   \
  static constexpr auto Update = family##_UpdateRIFFSize
