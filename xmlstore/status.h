// The status codes of the operations that do not answer with a truth value. Beware: the failure is
// not 0.
#pragma once

#include <cstdint>

namespace xmlstore {

constexpr std::int32_t kStatusOk = 0;
constexpr std::int32_t kStatusFailed = static_cast<std::int32_t>(0x80004005);

}  // namespace xmlstore
