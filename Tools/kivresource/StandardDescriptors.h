#pragma once

namespace tool {

/// Opens /dev/null under each of the numbers 0 to 2 that is closed, as a daemon may find them.
/// Otherwise the next file or pipe would get that number, and what is meant for standard output or
/// error would be written into it. To be called before anything is opened; false if one of the
/// three stays closed.
bool openStandardDescriptors();

}  // namespace tool
