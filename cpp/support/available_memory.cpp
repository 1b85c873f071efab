#include "support/available_memory.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <limits>
#include <span>
#include <sstream>
#include <string_view>
#include <vector>

#include "support/byte_size.h"

namespace Nimbrel {
namespace {

constexpr unsigned long unlimited = std::numeric_limits<unsigned long>::max();

/// The number in a file; none for a missing file and for the text "max".
std::optional<unsigned long> number_in(const std::string& file) {
    std::ifstream in(file);
    unsigned long number = 0;
    if (in >> number) return number;
    return std::nullopt;
}

/// The sum of the numbers in the lines "name number" with one of `names`; none without such a line.
std::optional<unsigned long> sum_of_fields(const std::string& file,
                                           std::span<const std::string_view> names) {
    std::ifstream in(file);
    std::optional<unsigned long> sum;
    std::string name;
    unsigned long number = 0;
    while (in >> name >> number) {
        if (std::find(names.begin(), names.end(), name) != names.end()) {
            sum = sum.value_or(0) + number;
        }
        in.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }
    return sum;
}

unsigned long free_physical_memory(const std::string& root) {
    constexpr std::array<std::string_view, 1> field{"MemAvailable:"};
    const auto kilobytes = sum_of_fields(root + "/proc/meminfo", field);
    return kilobytes ? *kilobytes * 1024 : unlimited;
}

/// The file names of one version of control groups. Each file includes the groups below.
struct GroupVersion {
    std::string_view file_system;  ///< type in the mount table
    std::string_view controller;   ///< in lists of hierarchies; empty if there is only one
    std::string_view limit;
    std::string_view usage;
    std::array<std::string_view, 3> droppable;  ///< fields of memory.stat
};

constexpr GroupVersion version_1{"cgroup",
                                 "memory",
                                 "/memory.limit_in_bytes",
                                 "/memory.usage_in_bytes",
                                 {"total_active_file", "total_inactive_file"}};
constexpr GroupVersion version_2{"cgroup2",
                                 "",
                                 "/memory.max",
                                 "/memory.current",
                                 {"active_file", "inactive_file", "slab_reclaimable"}};

/// The smaller of `known` and the rest of the limit of one group. Reads the size of the cache only
/// if it can change the result, because the system needs long to add it up.
unsigned long least_in_group(unsigned long known, const std::string& directory,
                             const GroupVersion& version) {
    const unsigned long limit =
        number_in(directory + std::string(version.limit)).value_or(unlimited);
    const unsigned long usage = number_in(directory + std::string(version.usage)).value_or(0);
    const auto left = [limit](unsigned long held) { return limit - std::min(limit, held); };
    if (left(usage) >= known) return known;
    const unsigned long droppable =
        sum_of_fields(directory + "/memory.stat", version.droppable).value_or(0);
    return std::min(known, left(usage - std::min(usage, droppable)));
}

/// The smallest rest of the group and of all groups above it, up to the mounted one. `below` is the
/// group's path relative to the mounted one: empty, or with a leading "/".
unsigned long least_on_path(unsigned long known, const std::string& mounted, std::string below,
                            const GroupVersion& version) {
    unsigned long least = least_in_group(known, mounted, version);
    while (!below.empty()) {
        least = least_in_group(least, mounted + below, version);
        below.resize(below.rfind('/'));
    }
    return least;
}

bool has_item(const std::string& list, std::string_view item) {
    std::istringstream items(list);
    std::string one;
    while (std::getline(items, one, ',')) {
        if (one == item) return true;
    }
    return false;
}

/// Path of the group of the process in the hierarchy that counts memory, if there is one.
std::optional<std::string> group_of_process(const std::string& root, const GroupVersion& version) {
    std::ifstream in(root + "/proc/self/cgroup");
    std::string number;
    std::string controllers;
    std::string group;
    while (std::getline(in, number, ':') && std::getline(in, controllers, ':') &&
           std::getline(in, group)) {
        const bool same = version.controller.empty() ? controllers.empty()
                                                     : has_item(controllers, version.controller);
        if (same) return group;
    }
    return std::nullopt;
}

/// An entry of the mount table that mounts control groups.
struct GroupMount {
    std::string group;  ///< path of the mounted group
    std::string place;  ///< directory where it is mounted
};

std::vector<GroupMount> group_mounts(const std::string& root, const GroupVersion& version) {
    std::ifstream in(root + "/proc/self/mountinfo");
    std::vector<GroupMount> mounts;
    for (std::string line; std::getline(in, line);) {
        std::istringstream words(line);
        std::string word;
        std::string type;
        std::string options;
        GroupMount mount;
        words >> word >> word >> word >> mount.group >> mount.place;
        while (words >> word && word != "-") {
        }
        words >> type >> word >> options;
        if (type != version.file_system) continue;
        if (version.controller.empty() || has_item(options, version.controller)) {
            mounts.push_back(mount);
        }
    }
    return mounts;
}

/// The path of `group` relative to the mounted group, empty for the mounted group itself; none if
/// it is not below the mounted group.
std::optional<std::string> path_below(const std::string& mounted, const std::string& group) {
    // A mount from outside the namespace of the process contains every group of the namespace.
    if (mounted.starts_with("/..")) return std::string();
    const std::string above = mounted == "/" ? "" : mounted;
    if (!group.starts_with(above)) return std::nullopt;
    const std::string below = group.substr(above.size());
    if (below == "/") return std::string();
    return below.empty() || below[0] == '/' ? std::optional(below) : std::nullopt;
}

/// The smaller of `known` and the smallest rest of all groups of the process.
unsigned long least_in_groups(unsigned long known, const std::string& root,
                              const GroupVersion& version) {
    const auto group = group_of_process(root, version);
    if (!group) return known;
    unsigned long least = known;
    for (const GroupMount& mount : group_mounts(root, version)) {
        const auto below = path_below(mount.group, *group);
        if (below) least = least_on_path(least, root + mount.place, *below, version);
    }
    return least;
}

unsigned long available_to_this_process() { return available_memory(""); }

}  // namespace

unsigned long (*ask_available_memory)() = available_to_this_process;

unsigned long available_memory(const std::string& root) {
    const unsigned long physical = free_physical_memory(root);
    return least_in_groups(least_in_groups(physical, root, version_1), root, version_2);
}

std::string MemoryShortage::text() const {
    return " It needs " + human_byte_size(needed) + ", and the process may have " +
           human_byte_size(available) + " more.";
}

std::optional<MemoryShortage> find_shortage(unsigned long bytes) {
    if (bytes < large_step) return std::nullopt;
    const unsigned long available = ask_available_memory();
    if (bytes <= available) return std::nullopt;
    return MemoryShortage{bytes, available};
}

}  // namespace Nimbrel
