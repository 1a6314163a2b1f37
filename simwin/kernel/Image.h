// The product's shared object, loaded afresh for each simulated process: a copy of the file, so that the loader gives
// it globals of its own. An image whose process has ended goes back to a pool with its pristine data written back.
#pragma once

#include <cstdint>
#include <string>

namespace machine {

struct Image;

// Called on the first fiber of a process. Stops the run if the file cannot be loaded.
Image* LoadImage(const std::string& file);
// Makes the folder for the copies and the first copy of the file, so that a full disk or a missing folder is noticed
// before anything runs. Removes the folder when the host's user ends the program. Returns: what failed on the host, or
// "".
std::string PrepareImages(const std::string& file);
// Why the host stopped the run: no more copies could be made. "" if it did not.
const std::string& HostFailure();
void ReturnImage(Image* image);
void UnloadImages();
// Removes the copies and their folder from inside a handler of signals: the program ends now.
void RemoveImageFiles();
// An exported symbol; null if there is none.
void* ImageSymbol(Image* image, const char* name);
// An address inside the image as Windows would show it: 0x140000000 plus the offset; 0 if it is not inside.
std::uint64_t StableImageAddress(const Image* image, const void* address);

} // namespace machine
