#pragma once

namespace tool {

/// Opens /dev/null for each of the descriptors 0 to 2 that is closed, which may happen in a daemon.
/// Otherwise the next file or pipe would get that number and receive the output for standard output
/// or standard error. Call it before anything else is opened. False if one of the three stays
/// closed.
bool openStandardDescriptors();

}  // namespace tool
