// The status codes of the operations that do not return a truth value. Beware: success is 0.
#pragma once

#include <cstdint>

namespace xmlstore {

constexpr std::int32_t kStatusOk = 0;
constexpr std::int32_t kStatusFailed = static_cast<std::int32_t>(0x80004005);

}  // namespace xmlstore
