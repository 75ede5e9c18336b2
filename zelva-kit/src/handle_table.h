// The handle table behind each product family's flat C interface: handles to engines, the argument checks in
// their fixed order, and every failure turned into an Error line plus a result code.
//
// One static instance per family. The family's mutex is taken by spinning on try_lock (no sleep, no yield)
// and held for the whole call, loading and inference included; argument checks run after the lock, so even
// a bad call waits its turn. Handle h names slot h-1; freed slots are reused last freed first.
#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <vector>

#include "zelva/src/utility/logging.h"
#include "zv2_common.h"

namespace zelva {
namespace kit {

// Where an entry point stands, so that its lines name the entry itself.
struct CallSite {
  const char* function;
  const char* file;
  int32_t line;
};

#define ZV_CALL_SITE               \
  ::zelva::kit::CallSite {         \
    ZV_FUNCTION, ZV_FILE, __LINE__ \
  }

// Engine needs: int32_t Load(int32_t, const char**), Apply_Cpu(const void*, void*), Apply_Gpu(),
// Reset_RNN_State_Cpu(), Set_Attr(const char*, const char*), Get_Attr(const char*, void*).
template <class Engine>
class HandleTable {
 public:
  struct Record {
    uint32_t handle = 0;
    std::shared_ptr<Engine> engine;
  };

  _ZV2_Result Create(const CallSite& site, uint32_t* handle, int32_t argc, const char** argv) {
    Guard guard(this);
    if (argc < 1) {
      Error(site, "argc(%d) must be > 0.", argc);
      return ZV2_RESULT_INVALID_ARGUMENT;
    }
    if (handle == nullptr) {
      Error(site, "handle is NULL.");
      return ZV2_RESULT_INVALID_ARGUMENT;
    }
    std::unique_ptr<Record> record(new Record());
    record->engine = std::make_shared<Engine>();
    if (record->engine->Load(argc, argv) != 0) {
      // The record never entered the table: it and its engine go here, with all the engine took.
      Error(site, "load model failed.");
      return ZV2_RESULT_FAILED;
    }
    uint32_t h;
    if (!free_slots_.empty()) {
      const uint32_t index = free_slots_.back();
      free_slots_.pop_back();
      slots_[index] = record.get();
      h = index + 1;
    } else {
      slots_.push_back(record.get());
      h = static_cast<uint32_t>(slots_.size());
    }
    record->handle = h;
    record.release();  // owned by its slot from here
    *handle = h;
    live_handles_.push_back(h);
    return ZV2_RESULT_OK;
  }

  _ZV2_Result Destroy(const CallSite& site, uint32_t* handle) {
    Guard guard(this);
    if (handle == nullptr) {
      Error(site, "handle is NULL.");
      return ZV2_RESULT_INVALID_ARGUMENT;
    }
    const uint32_t h = *handle;
    if (h == 0 || h > slots_.size()) {
      Error(site, "handle(%u) not found.", h);
      return ZV2_RESULT_HANDLE_NOT_FOUND;
    }
    auto live = live_handles_.begin();
    while (live != live_handles_.end() && *live != h) ++live;
    if (live == live_handles_.end()) {
      Error(site, "handle(%u) mismatched.", h);
      return ZV2_RESULT_HANDLE_NOT_FOUND;
    }
    Record*& slot = slots_[h - 1];
    if (slot == nullptr) {
      Error(site, "context is NULL.");
      return ZV2_RESULT_FAILED;
    }
    slot->engine.reset();  // the engine and everything it holds go here, under the lock
    delete slot;
    slot = nullptr;
    free_slots_.push_back(h - 1);
    live_handles_.erase(live);
    *handle = 0;
    return ZV2_RESULT_OK;
  }

  _ZV2_Result ApplyCpu(const CallSite& site, uint32_t h, const void* input, void* output) {
    Guard guard(this);
    Engine* engine = nullptr;
    _ZV2_Result code = CheckIo(site, input, output);
    if (code == ZV2_RESULT_OK) code = Find(site, h, &engine);
    if (code != ZV2_RESULT_OK) return code;
    return Check(site, engine->Apply_Cpu(input, output));
  }

  // No guard on purpose: the engine raises, the exception leaves the library and the family stays locked.
  _ZV2_Result ApplyGpu(const CallSite& site, uint32_t h, const void* input, void* output) {
    Lock();
    Engine* engine = nullptr;
    _ZV2_Result code = CheckIo(site, input, output);
    if (code == ZV2_RESULT_OK) code = Find(site, h, &engine);
    if (code != ZV2_RESULT_OK) {
      Unlock();
      return code;
    }
    code = Check(site, engine->Apply_Gpu());
    Unlock();
    return code;
  }

  _ZV2_Result Reset(const CallSite& site, uint32_t h) {
    Guard guard(this);
    Engine* engine = nullptr;
    const _ZV2_Result code = Find(site, h, &engine);
    if (code != ZV2_RESULT_OK) return code;
    return Check(site, engine->Reset_RNN_State_Cpu());
  }

  _ZV2_Result Set(const CallSite& site, uint32_t h, const char* name, const char* value) {
    Guard guard(this);
    Engine* engine = nullptr;
    _ZV2_Result code = CheckNameValue(site, name, value);
    if (code == ZV2_RESULT_OK) code = Find(site, h, &engine);
    if (code != ZV2_RESULT_OK) return code;
    return Check(site, engine->Set_Attr(name, value));
  }

  _ZV2_Result Get(const CallSite& site, uint32_t h, const char* name, void* value) {
    Guard guard(this);
    Engine* engine = nullptr;
    _ZV2_Result code = CheckNameValue(site, name, value);
    if (code == ZV2_RESULT_OK) code = Find(site, h, &engine);
    if (code != ZV2_RESULT_OK) return code;
    return Check(site, engine->Get_Attr(name, value));
  }

 private:
  struct Guard {
    explicit Guard(HandleTable* table) : table(table) { table->Lock(); }
    ~Guard() { table->Unlock(); }
    HandleTable* table;
  };

  void Lock() {
    while (!mutex_.try_lock()) {
    }
  }
  void Unlock() { mutex_.unlock(); }

  template <class... Args>
  static void Error(const CallSite& site, const char* format, Args... args) {
    ::zelva::utility::Log(::zelva::utility::kLogError, site.function, site.file, site.line, format, args...);
  }

  static _ZV2_Result CheckIo(const CallSite& site, const void* input, const void* output) {
    if (input == nullptr) {
      Error(site, "input is NULL.");
      return ZV2_RESULT_INVALID_ARGUMENT;
    }
    if (output == nullptr) {
      Error(site, "output is NULL.");
      return ZV2_RESULT_INVALID_ARGUMENT;
    }
    return ZV2_RESULT_OK;
  }

  static _ZV2_Result CheckNameValue(const CallSite& site, const char* name, const void* value) {
    if (name == nullptr || name[0] == '\0') {
      Error(site, "name is null or empty.");
      return ZV2_RESULT_INVALID_ARGUMENT;
    }
    if (value == nullptr) {
      Error(site, "value is null.");
      return ZV2_RESULT_INVALID_ARGUMENT;
    }
    return ZV2_RESULT_OK;
  }

  // The handle check of the operating entries: range first, then the slot (live_handles is not consulted).
  _ZV2_Result Find(const CallSite& site, uint32_t h, Engine** engine) {
    if (h == 0 || h > slots_.size()) {
      Error(site, "handle(%u) not found.", h);
      return ZV2_RESULT_HANDLE_NOT_FOUND;
    }
    Record* record = slots_[h - 1];
    if (record == nullptr) {
      Error(site, "context is NULL.");
      return ZV2_RESULT_FAILED;
    }
    *engine = record->engine.get();
    return ZV2_RESULT_OK;
  }

  static _ZV2_Result Check(const CallSite& site, int32_t engine_result) {
    if (engine_result == 0) return ZV2_RESULT_OK;
    Error(site, "apply failed.");
    return ZV2_RESULT_FAILED;
  }

  // Only ever grows. At unload the arrays are released; records still in them are not destroyed.
  std::vector<Record*> slots_;
  std::vector<uint32_t> free_slots_;
  std::mutex mutex_;
  // Live handles in creation order; consulted by destroy only.
  std::list<uint32_t> live_handles_;
};

}  // namespace kit
}  // namespace zelva
