// The scenario of the log: on a full disk, in a directory that cannot be written, or whatever else fails, every line
// goes to the log file or to its stream, and when the fault has ended, to the file.
#pragma once

namespace faults {

void logLines();

}  // namespace faults
