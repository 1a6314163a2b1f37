// What the machine needs to know of the program that it is linked into: where the product's globals lie, where code can
// lie, the product's compiled resources. One source for each system that the machine runs on.
#pragma once

#include <cstdint>
#include <span>

namespace host {

// All that the image may write, collected by the build: the same bytes for every simulated process.
std::span<char> ImageData();

// True for an address in the loaded program: code and constants of machine and product alike.
bool IsInProgram(const void* address);

// The image's compiled resources, as the resource compiler wrote them.
std::span<const std::uint8_t> ImageResources();

} // namespace host
