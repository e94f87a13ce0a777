#pragma once

#include <cstdint>
#include <string>

/// Plays a baseband recording through and writes the header of a WAV file for it; samples are not written yet.
/// 0; -29 the recording or the output cannot be opened; -79 not a baseband recording; -84 no such folder. Throws as
/// RecordingPath::makeUnique, and std::system_error when there is no thread to be had.
int32_t convertBasebandFileToWavFile(const std::string& recording, const std::string& wavPath);
