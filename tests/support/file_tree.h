#pragma once

#include "util/text/pathname.h"

#include <map>

namespace velmox::testing {

/// The files below a folder with their bytes, by their paths from there on, with backslashes.
using FileTree = std::map<Str, Str>;

/// Makes the folders that are missing.
void writeTree(const Pathname &root, const FileTree &files);
FileTree readTree(const Pathname &root);

/// Compares two trees and shows them when they differ, with their control bytes made visible.
void expectTree(const FileTree &actual, const FileTree &expected);

} // namespace velmox::testing
