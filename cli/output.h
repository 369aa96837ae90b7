// Image files for the command line: JPEG and PNG read and written with
// libjpeg and libpng directly (with warnings for damaged files and dropped
// transparency), other formats through the host; every file written under a
// temporary name in its folder and renamed when complete, so that an
// interrupted run leaves no partial file.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "host/host.h"
#include "host/host_state.h"

namespace ph {

// An image file or sample:WxH as a host picture.
Ref LoadImage(Host& host, const std::string& source);
// Saves by the extension of `path` (.png .jpg .jpeg .bmp .tif .tiff); JPEG at
// `quality` (1..100, -1: 75). Folders are made as needed.
void SaveImage(Host& host, const Ref& picture, const std::string& path, int32_t quality);
void WriteFileSafely(const std::string& path, const std::vector<uint8_t>& bytes);
// Whether SaveImage knows the extension of `path`; the list of those it knows.
bool IsImageName(const std::string& path);
const char* ImageFormats();

// On SIGINT, SIGTERM or SIGHUP: removes the temporary files being written,
// passes the signal to the child processes and ends the process by it.
void InstallInterruptCleanup();
void AddChild(pid_t pid);
void RemoveChild(pid_t pid);

}  // namespace ph
