# Installed: both libraries, their headers, find_package(nal) and pkg-config files.
