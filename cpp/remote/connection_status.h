/// The status text that the filters with a far end share.
#pragma once

#include <string_view>

namespace Nimbrel {

constexpr std::string_view connection_status(bool connected) {
    return connected ? R"({"connected":true})" : R"({"connected":false})";
}

}  // namespace Nimbrel
