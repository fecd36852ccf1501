#ifndef OSTREL_HOST_CURRENT_DIRECTORY_H
#define OSTREL_HOST_CURRENT_DIRECTORY_H

#include "command_line.h"

namespace ostrel::host {

// Makes the paths of the options independent of the current directory. Paths that begin with a backslash are
// the file system's own, such as \Device\HarddiskVolume3\data, and stay, but for the log file's.
void MakePathsAbsolute(Options& options);

// The library looks for OstrelUserHelper.exe from the current directory on, and it lies beside this program.
void EnterProgramFolder();

}  // namespace ostrel::host

#endif
