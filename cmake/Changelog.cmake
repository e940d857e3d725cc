# SPDX-License-Identifier: MIT
# Run when packages are built: writes the Debian changelog of QF_PACKAGE, with the time of SOURCE_DATE_EPOCH.
set(file $ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/share/doc/${QF_PACKAGE}/changelog)
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE ${file} "qf-mkv (${QF_VERSION}) stable; urgency=medium

  * This version of qf_mkv, built from its source.

 -- The qf_mkv authors <authors@qf-mkv.invalid>  ${date}
")
execute_process(COMMAND gzip -9nf ${file} COMMAND_ERROR_IS_FATAL ANY)
