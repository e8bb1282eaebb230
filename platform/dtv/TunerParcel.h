#pragma once

#include <binder/Parcel.h>
#include <dtv/BroadcastTypes.h>
#include <dtv/TunerTypes.h>

// How the tuner's structures stand in a parcel: their fields in the order of declaration, numbers
// and enumerators as int32 (counts of 64 bits as int64), text and bytes as an int32 length and a
// blob, lists as an int32 count and the elements; the flags of TuneOptions are one int32, paced
// being bit 0, and lead.
//
// Options end with the script of faults, where the flag says that the source plays as live. A
// signal ends with the network's counts, and what the frontend tells where there is one, floating
// numbers as the int64 of their bits (IEEE 754); readers take one without either.
//
// Writers cut what is longer than readers take. Readers answer false for anything out of its range,
// and may have written half of what they read into; they take no more memory than the parcel is
// long, times a small factor.
namespace orvhost {

constexpr size_t MAX_TUNER_TEXT = 4096;  // bytes, of one name or message
constexpr size_t MAX_FAULT_SCRIPT = 64 << 10;
constexpr int32_t MAX_SOURCE_FAULTS = 1000;

void writeText(android::Parcel* parcel, const std::string& text);
bool readText(const android::Parcel& parcel, std::string* text);

void writeTuneOptions(android::Parcel* parcel, const TuneOptions& options);
// Timeouts are limited to ITuner::MAX_TIMEOUT_MS.
bool readTuneOptions(const android::Parcel& parcel, TuneOptions* options);

void writeTuneResult(android::Parcel* parcel, const TuneResult& result);
bool readTuneResult(const android::Parcel& parcel, TuneResult* result);

// Services that would make the parcel larger than a call may be are left out.
void writeServiceList(android::Parcel* parcel, const ServiceList& list);
bool readServiceList(const android::Parcel& parcel, ServiceList* list);

void writeBroadcastInformation(android::Parcel* parcel, const BroadcastInformation& information);
bool readBroadcastInformation(const android::Parcel& parcel, BroadcastInformation* information);

void writeSourceFaults(android::Parcel* parcel, const std::vector<SourceFault>& faults);
bool readSourceFaults(const android::Parcel& parcel, std::vector<SourceFault>* faults);

void writeTunerSignal(android::Parcel* parcel, const TunerSignal& signal);
bool readTunerSignal(const android::Parcel& parcel, TunerSignal* signal);

}  // namespace orvhost
