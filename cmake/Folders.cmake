# SPDX-License-Identifier: MIT
# Where things are installed. The library folder has the ABI in its name, so both ABIs lie side by side under any prefix.
# The plug-in has a folder of its own in it: it is loaded, never linked, and no linker and no ldconfig should find it.
include(GNUInstallDirs)
set(QF_LIBRARY_FOLDER lib/${CMAKE_SYSTEM_PROCESSOR}-linux-gnu CACHE STRING "Libraries of this ABI, below the prefix")
set(QF_PLUGIN_FOLDER ${QF_LIBRARY_FOLDER}/qf_mkv)
file(RELATIVE_PATH QF_PLUGIN_FROM_TOOLS /${CMAKE_INSTALL_BINDIR} /${QF_PLUGIN_FOLDER}/qf_mkv.so)
