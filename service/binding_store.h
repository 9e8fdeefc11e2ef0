// binding_store.h - bindings on disk, so that they survive a restart.
// In:  a snapshot of the table. Out: a file that is either the old or the new one whatever moment the machine
// stops, and back. The file's form: service/binding_codec.h.
#pragma once

#include <span>
#include <string>

#include "service/binding_codec.h"

namespace vex::service {

class FileOps;

// Empty: saved. Otherwise what failed, with the file's name and what to do; the old file is then still in
// place.
std::string SaveBindings(const std::string& path, std::span<const Binding> bindings);
std::string SaveBindings(const std::string& path, std::span<const Binding> bindings, FileOps& ops);
LoadedBindings LoadBindings(const std::string& path, size_t max_bindings);

}  // namespace vex::service
