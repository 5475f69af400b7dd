// Hostile answers: what a broken or malicious card might send for any object. A card in hostile
// mode answers every GET with the next value of a sequence its seed fixes, so a run can be
// repeated exactly.
#pragma once

#include <cstdint>
#include <string_view>

#include "value.h"

struct variable_list;

namespace upssim {

// The draw-th hostile value of a seed's sequence.
std::uint64_t HostileDraw(std::uint64_t seed, std::uint64_t count);

// Puts into var a hostile value chosen by draw, built around the card's real value: the other
// ASN.1 type, an empty or oversize string, binary bytes, an integer at a 32-bit extreme, a
// Counter64, an OBJECT IDENTIFIER, NULL, an IpAddress, an Opaque or an SNMPv2 exception.
// Returns the kind's name.
std::string_view SetHostileValue(variable_list &var, const Value &real, std::uint64_t draw);

}  // namespace upssim
