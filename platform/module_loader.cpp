// module_loader.cpp - see module_loader.h.
// In:  a path, or the program's own list of records. Out: a running module; a clean process after its end.
// Loading and unloading are for one thread at a time.
#include "platform/module_loader.h"

#include <dlfcn.h>
#include <link.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <utility>

#include "platform/board.h"
#include "platform/channel_events.h"
#include "platform/clock.h"
#include "platform/findings.h"
#include "platform/packet.h"

namespace vex::platform {
namespace {

constexpr const char* kOptionalLibraries[] = {"libdb_arp.so", "libvex_mlag.so"};

ModuleRecord* ListHead() { return static_cast<ModuleRecord*>(g_pluginModRegHead); }

std::string LoaderError() {
  const char* const text = dlerror();
  return text != nullptr ? text : "no reason given";
}

// Address range of a loaded object.
struct ObjectRange {
  const void* base;
  uintptr_t first = UINTPTR_MAX;
  uintptr_t last = 0;
};

ObjectRange RangeOf(const void* base) {
  ObjectRange range{base};
  dl_iterate_phdr(
      [](dl_phdr_info* info, size_t, void* data) {
        auto& wanted = *static_cast<ObjectRange*>(data);
        ObjectRange found{nullptr};
        for (size_t i = 0; i < info->dlpi_phnum; ++i) {
          const ElfW(Phdr)& segment = info->dlpi_phdr[i];
          if (segment.p_type != PT_LOAD) continue;
          found.first = std::min<uintptr_t>(found.first, info->dlpi_addr + segment.p_vaddr);
          found.last = std::max<uintptr_t>(found.last, info->dlpi_addr + segment.p_vaddr + segment.p_memsz);
        }
        const auto address = reinterpret_cast<uintptr_t>(wanted.base);
        if (address < found.first || address >= found.last) return 0;
        wanted.first = found.first;
        wanted.last = found.last;
        return 1;
      },
      &range);
  return range;
}

// The module asks for its optional libraries by bare name; the loader answers with one that is open already.
std::vector<void*> OpenOptional(const std::vector<std::string>& directories) {
  std::vector<void*> handles;
  for (const std::string& directory : directories) {
    for (const char* const name : kOptionalLibraries) {
      const std::filesystem::path path = std::filesystem::path(directory) / name;
      if (!std::filesystem::exists(path)) continue;
      void* const handle = dlopen(path.c_str(), RTLD_LAZY | RTLD_LOCAL);
      if (handle == nullptr)
        throw ModuleError("cannot open the optional library " + path.string() + ": " + LoaderError());
      handles.push_back(handle);
    }
  }
  return handles;
}

// A module keeps its optional libraries open for good. Once it is gone nobody else in this process uses them,
// so the references it left are closed and the next module may find other variants.
void CloseLeftOptional() {
  constexpr int kMostReferences = 64;
  for (const char* const name : kOptionalLibraries) {
    for (int i = 0; i < kMostReferences; ++i) {
      void* const handle = dlopen(name, RTLD_LAZY | RTLD_NOLOAD);
      if (handle == nullptr) break;
      dlclose(handle);
      dlclose(handle);
    }
    dlerror();  // a name that is not loaded leaves a text behind
  }
}

void UnlinkRecord(ModuleRecord* record) {
  if (ListHead() == record) {
    g_pluginModRegHead = record->next;
    return;
  }
  for (ModuleRecord* before = ListHead(); before != nullptr; before = before->next) {
    if (before->next == record) before->next = record->next;
  }
}

uint32_t NextModuleId() {
  static uint32_t last = 0;
  return ++last;
}

}  // namespace

const void* ObjectBase(const void* address) {
  Dl_info info{};
  return dladdr(address, &info) != 0 ? info.dli_fbase : nullptr;
}

std::unique_ptr<Module> Module::Load(const std::string& path, const ModuleOptions& options) {
  std::unique_ptr<Module> module(new Module);
  module->path_ = path;
  module->optionalHandles_ = OpenOptional(options.optionalDirs);
  const ModuleRecord* const before = ListHead();
  module->handle_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (module->handle_ == nullptr) {
    throw ModuleError(
        "cannot load the module " + path + ": " + LoaderError() +
        " (name the built libvex_dhcp.so; an undefined symbol means that this program and the library "
        "were built from different sources)");
  }
  if (ListHead() == before) {
    throw ModuleError(
        "the library " + path +
        " registered no module record: it is loaded already, or it is not a module of this framework");
  }
  module->record_ = ListHead();
  module->Construct(options);
  return module;
}

std::unique_ptr<Module> Module::Linked(const ModuleOptions& options, const char* name) {
  std::unique_ptr<Module> module(new Module);
  for (ModuleRecord* record = ListHead(); record != nullptr; record = record->next) {
    if (record->name != nullptr && std::strcmp(record->name, name) == 0) module->record_ = record;
  }
  if (module->record_ == nullptr) {
    throw ModuleError(std::string("this program is not linked with a module named ") + name +
                      " (load its library by path instead)");
  }
  module->path_ = "(linked)";
  module->optionalHandles_ = OpenOptional(options.optionalDirs);
  module->Construct(options);
  return module;
}

Module::~Module() {
  try {
    Unload();
  } catch (const ModuleError& error) {
    ReportFinding(error.what());
  }
}

void Module::Construct(const ModuleOptions& options) {
  base_ = ObjectBase(reinterpret_cast<const void*>(record_->init));
  if (record_->init == nullptr || record_->globalConstructor == nullptr ||
      record_->lcoreConstructor == nullptr || record_->globalDestructor == nullptr ||
      record_->lcoreDestructor == nullptr) {
    throw ModuleError("the module record of " + path_ +
                      " lacks its init function, a constructor or a destructor");
  }
  record_->id = options.moduleId != 0 ? options.moduleId : NextModuleId();
  lcores_ = std::make_unique<LcoreThreads>(options.lcores);
  record_->globalConstructor();
  lcores_->RunOnEach(record_->lcoreConstructor);
  constructed_ = true;
  if (options.init) Init();
}

uint32_t Module::Init() {
  if (!initialised_) {
    initResult_ = record_->init();
    initialised_ = true;
  }
  return initResult_;
}

void* Module::Symbol(const char* name) const {
  void* const symbol = dlsym(handle_ != nullptr ? handle_ : RTLD_DEFAULT, name);
  if (symbol == nullptr)
    throw ModuleError("the module " + path_ + " does not export " + name + ": " + LoaderError());
  return symbol;
}

bool Module::Has(const char* name) const {
  const bool found = dlsym(handle_ != nullptr ? handle_ : RTLD_DEFAULT, name) != nullptr;
  if (!found) dlerror();
  return found;
}

uint32_t Module::Configure(const char* handler, const void* request) {
  const std::lock_guard lock(configuration_);
  if (!initialised_) throw ModuleError(std::string(handler) + ": the module's start-up has not returned yet");
  if (TheBoard().RpcServices().empty()) {
    throw ModuleError(std::string(handler) +
                      ": the module registered no configuration service (unsupported board " +
                      std::to_string(TheBoard().Type()) + ", or its start-up failed)");
  }
  return Fn<uint32_t(const void*)>(handler)(request);
}

void Module::Unload() {
  if (constructed_) {
    lcores_->RunOnEach(record_->lcoreDestructor);
    record_->globalDestructor();
    constructed_ = false;
  }
  lcores_.reset();
  if (record_ != nullptr) {
    Hooks().RemoveObject(base_);
    Events().RemoveObject(base_);
    TheClock().RemoveObject(base_);
    TheBoard().RemoveRpcServices();
  }
  for (void* handle : optionalHandles_) dlclose(handle);
  optionalHandles_.clear();
  void* const handle = std::exchange(handle_, nullptr);
  if (handle == nullptr) return;  // linked into the program, or never opened
  if (record_ != nullptr) {
    UnlinkRecord(record_);
    const ObjectRange range = RangeOf(record_);
    Packets().KeepSiteTexts(range.first, range.last);
    record_ = nullptr;
  }
  dlclose(handle);
  CloseLeftOptional();
  if (void* const again = dlopen(path_.c_str(), RTLD_LAZY | RTLD_NOLOAD); again != nullptr) {
    dlclose(again);
    throw ModuleError("the library " + path_ + " is still mapped after its last reference was closed");
  }
  dlerror();
}

}  // namespace vex::platform
