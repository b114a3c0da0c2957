#ifndef FLUVIAFS_TOOLS_TREECOMMAND_H_
#define FLUVIAFS_TOOLS_TREECOMMAND_H_

#include "Commands.h"

namespace tools {

// Adds "tree": shows an XML or JSON body as the library's readers parse it.
void addTree(CLI::App& app, Command* chosen);

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_TREECOMMAND_H_
