// module_loader.h - brings a libvex_dhcp.so up as the framework does, and takes it down again.
// In:  path of the library, number of lcore threads, directories of the optional libraries.
// Out: the running module: its record, its exports by name, dispatch of configuration; or a ModuleError that
// says
//      what failed, where, and what to do.
// Start-up: dlopen, record found through g_pluginModRegHead, id assigned, global constructor, per-lcore
// constructors on their threads, DhcpVexInit; only then is configuration dispatched, one request at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "dhcp_vex_platform.h"
#include "platform/lcore.h"

namespace vex::platform {

class ModuleError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The framework's view of a module record. Unnamed words belong to others.
struct ModuleRecord {
  uint8_t owned[16];
  ModuleRecord* next;  // the record that was registered before this one
  const char* name;
  uint64_t zero32;
  uint32_t (*init)();
  uint8_t zero48[40];
  uint32_t id;  // the framework's; the constructors copy it
  uint8_t zero92[28];
  uint32_t word120;
  uint32_t zero124;
  void (*globalConstructor)();
  void (*lcoreConstructor)();
  void (*globalDestructor)();
  void (*lcoreDestructor)();
  uint8_t zero160[16];
};
static_assert(sizeof(ModuleRecord) == 176 && offsetof(ModuleRecord, next) == 16 &&
              offsetof(ModuleRecord, init) == 40);
static_assert(offsetof(ModuleRecord, id) == 88 && offsetof(ModuleRecord, word120) == 120);
static_assert(offsetof(ModuleRecord, globalConstructor) == 128 &&
              offsetof(ModuleRecord, lcoreDestructor) == 152);

struct ModuleOptions {
  size_t lcores = 0;      // 0: the calling thread is the only lcore
  uint32_t moduleId = 0;  // 0: the next free one
  bool init = true;       // false: constructed only; call Init() later
  // Directories with libdb_arp.so or libvex_mlag.so to open before the module asks for them by name. A
  // library that is in none of them, nor on the loader's own search path, is absent for the module.
  std::vector<std::string> optionalDirs{};
};

class Module {
 public:
  // Opens the library at the path. Throws ModuleError; nothing stays loaded then.
  static std::unique_ptr<Module> Load(const std::string& path, const ModuleOptions& options = {});
  // The module that the program itself is linked with, found in the list by name.
  static std::unique_ptr<Module> Linked(const ModuleOptions& options = {}, const char* name = "vex_dhcp");
  ~Module();  // unloads when Unload() was not called; problems become findings
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;

  uint32_t Init();  // DhcpVexInit, once; answers its result
  uint32_t InitResult() const { return initResult_; }
  const ModuleRecord& Record() const { return *record_; }
  LcoreThreads& Lcores() { return *lcores_; }
  const std::string& Path() const { return path_; }

  // Exports by name; a missing one throws ModuleError naming it.
  template <class F>
  F* Fn(const char* name) const {
    return reinterpret_cast<F*>(Symbol(name));
  }
  template <class T>
  T* Var(const char* name) const {
    return static_cast<T*>(Symbol(name));
  }
  void* Symbol(const char* name) const;
  bool Has(const char* name) const;

  // One configuration request, as the RPC framework delivers it: handlers DhcpCfg, DhcpSnpCfg,
  // DhcpDegradeCfg, DhcpSnpDelMac, DhcpPktCtrlCfg, DhcpPktCtrlCfgSync. Throws ModuleError before Init() has
  // returned or when the module registered no service.
  uint32_t Configure(const char* handler, const void* request);

  // Destructors, hooks, callbacks and timers removed, record unlinked, dlclose. Throws ModuleError when the
  // library is still mapped afterwards. The caller makes sure that no packet is inside the module.
  void Unload();

 private:
  Module() = default;
  void Construct(const ModuleOptions& options);
  std::string path_;
  void* handle_ = nullptr;      // null: linked into the program
  const void* base_ = nullptr;  // load address of the object, by which its callbacks are recognised
  ModuleRecord* record_ = nullptr;
  std::vector<void*> optionalHandles_;
  std::unique_ptr<LcoreThreads> lcores_;
  std::mutex configuration_;  // one request at a time
  bool constructed_ = false;
  bool initialised_ = false;
  uint32_t initResult_ = 0;
};

// Load address of the object that contains the address; null when it lies in none.
const void* ObjectBase(const void* address);

}  // namespace vex::platform
