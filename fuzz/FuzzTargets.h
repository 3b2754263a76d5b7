#pragma once

#include <cstddef>
#include <cstdint>

// What each fuzz target does with one input. The same functions run under
// libFuzzer (fuzz_main.cpp) and in the regression test that replays saved inputs,
// so an input that once failed is checked by an ordinary build too.
// A broken expectation aborts with a message on stderr.
namespace Veloran::Fuzz {

// Quiet FFmpeg and the library logger: millions of runs would drown in log lines.
void silenceLogs();

// The bytes as a media file inside the Qt resources: open, describe, decode every
// stream for a bounded number of packets, then accurate seeks and a backward read.
void fuzzMedia(const uint8_t *data, size_t size);

// The first byte chooses, the rest is the input: 0, a media file read through the
// video and audio sources (the next byte picks the output width); 1, a picture
// for the video adapter; 2, audio for the audio adapter; 3, a DVD VOB file for the
// chapter-aware demuxer and the sources over it (the other values repeat these).
void fuzzSources(const uint8_t *data, size_t size);

// The bytes as a timeline document followed by edit commands (see TimelineFuzzing.cpp).
void fuzzTimeline(const uint8_t *data, size_t size);

// isUtf8String against an independent decoder.
void fuzzUtf8(const uint8_t *data, size_t size);

} // namespace Veloran::Fuzz
