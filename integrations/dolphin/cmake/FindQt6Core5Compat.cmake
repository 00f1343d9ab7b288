# The KDE Frameworks 5 packages are built with Qt 5, yet KF5Codecs' package
# file (which KF5 KIO needs) asks for Qt6Core5Compat whenever a Qt6::Core
# target exists, as it does in the main Nimbrell project. That check is for
# builds of the frameworks with Qt 6; these link nothing of Qt 6, nor do the
# Dolphin plugins, so there is nothing to find. Only the Dolphin integration
# (and the main project's look for KF5 KIO) has this directory in
# CMAKE_MODULE_PATH.
set(Qt6Core5Compat_FOUND TRUE)
