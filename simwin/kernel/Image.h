// The product's shared object, loaded afresh for each simulated process: a copy of the file, so that the loader gives
// it globals of its own. An image whose process has ended goes back to a pool with its pristine data written back.
#pragma once

#include <cstdint>
#include <string>

namespace machine {

struct Image;

// Called on the first fiber of a process. Stops the run if the file cannot be loaded.
Image* LoadImage(const std::string& file);
void ReturnImage(Image* image);
void UnloadImages();
// An exported symbol; null if there is none.
void* ImageSymbol(Image* image, const char* name);
// An address inside the image as Windows would show it: 0x140000000 plus the offset; 0 if it is not inside.
std::uint64_t StableImageAddress(const Image* image, const void* address);

} // namespace machine
