/// The status text of the socket filter and of the export filter; callable from any thread.
#pragma once

#include <string_view>

namespace Nimbrel {

constexpr std::string_view connection_status(bool connected) {
    return connected ? R"({"connected":true})" : R"({"connected":false})";
}

}  // namespace Nimbrel
