// What a sample with a programme guide tells of time: its clock (TOT), and what is on air and comes
// next (EIT present/following). Names, times and character coding are those of its country.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "mksample/Options.h"
#include "mksample/Tables.h"

namespace mksample {

// The name and the id that a country's service has.
std::string serviceNameOf(Country country, bool partialReception);
uint16_t serviceIdOf(Country country, bool partialReception);

// None for Country::None. The clock starts at half past eight in the evening of 2026-11-21, local
// time, and goes on with the stream. Throws Failure.
std::vector<Table> buildGuide(const std::vector<ServiceInfo>& services, Country country,
                              uint16_t transportStreamId, uint16_t networkId);

}  // namespace mksample
