// A hash of bytes for tables that live no longer than the process: seeded anew in each, so that
// nobody can choose bytes that collide.
#pragma once

#include <cstdint>
#include <string_view>

namespace foundation::zorvandata {

uint64_t seededHash(std::string_view bytes);

}  // namespace foundation::zorvandata
