// Where the library keeps its own plug-ins.
#pragma once

#include <string>
#include <vector>

namespace vosh {

/// The plug-in folders of the tree, built or installed, that this program runs from.
std::vector<std::string> PluginFolders();

}  // namespace vosh
