#pragma once

#include <string>
#include <vector>

namespace host {

// What the outputs of each movie are called: its name without extension. If two movies have one name,
// the later one gets the first number from 2 that makes its name no other's. Names that differ in
// capitals or in the composition of their characters are one name, for many disks take them for one.
std::vector<std::string> output_names(const std::vector<std::string>& movies);

}  // namespace host
