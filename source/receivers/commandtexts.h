#pragma once

#include <string>

#include "receivers/sweepplan.h"

// Commands that every family's unit takes in the same words, each added to a batch.

void appendPacketSize(std::string& batch, uint32_t uSamplesPerPacket);
void appendDecimation(std::string& batch, uint32_t uDecimation);
void appendCentre(std::string& batch, float fHz);

/// A fresh list, which runs so many times; 0 is for ever.
void beginList(std::string& batch, uint32_t uTimes);
void appendEntryCentre(std::string& batch, float fHz);
void appendEntryPackets(std::string& batch, uint32_t uSamplesPerPacket, uint32_t uPacketsPerBlock);
void appendEntryDecimation(std::string& batch, uint32_t uDecimation);
void saveEntry(std::string& batch);
/// The whole of an entry that is tuned step by step.
void appendSteps(std::string& batch, const SweepPlan& cPlan);
