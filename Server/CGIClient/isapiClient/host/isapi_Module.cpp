// The COM self-registration exports of the Windows library. The module has
// no COM classes of its own: class lookups fail cleanly, registration has
// nothing to write and succeeds, and the lock count decides unloading.
#include <windows.h>
#include <objbase.h>

#include <atomic>

namespace {

class CisapiClientModule {
 public:
  HRESULT GetClassObject(REFCLSID, REFIID, void** object) {
    if (object) *object = nullptr;
    return CLASS_E_CLASSNOTAVAILABLE;
  }
  HRESULT RegisterServer() { return S_OK; }
  HRESULT UnregisterServer() { return S_OK; }
  HRESULT CanUnloadNow() const { return locks_.load() == 0 ? S_OK : S_FALSE; }
  BOOL Main(HINSTANCE instance, DWORD reason) {
    if (reason == DLL_PROCESS_ATTACH) ::DisableThreadLibraryCalls(instance);
    return TRUE;
  }
  void Lock() { ++locks_; }
  void Unlock() { --locks_; }

 private:
  std::atomic<long> locks_{0};
};

CisapiClientModule g_module;

}  // namespace

extern "C" {

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) { return g_module.Main(instance, reason); }
STDAPI DllGetClassObject(REFCLSID clsid, REFIID iid, LPVOID* object) {
  return g_module.GetClassObject(clsid, iid, object);
}
STDAPI DllRegisterServer() { return g_module.RegisterServer(); }
STDAPI DllUnregisterServer() { return g_module.UnregisterServer(); }
STDAPI DllCanUnloadNow() { return g_module.CanUnloadNow(); }

}  // extern "C"
