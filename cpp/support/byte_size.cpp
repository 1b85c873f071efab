#include "support/byte_size.h"

#include <sstream>

std::string human_byte_size(unsigned long bytes) {
    const auto size = static_cast<double>(bytes);
    std::ostringstream text;
    text.exceptions(std::ios::badbit);  // without memory the text would be cut short in silence
    if (bytes >> 40 != 0) {
        text << size * 0x1p-40 << " TB";
    } else if (bytes >> 30 != 0) {
        text << size * 0x1p-30 << " GB";
    } else if (bytes >= 1048576) {
        text << size * 0x1p-20 << " MB";
    } else if (bytes >= 1024) {
        text << size * 0x1p-10 << " KB";
    } else {
        text << bytes << " bytes";
    }
    return text.str();
}
