// The extension service's client as a new process has it: the product keeps it for its life.
#include "velmor_extend_cmn_client.cpp"  // NOLINT

void renew_extension_client() {
  MutexLock hold(g_extend_lock);
  if (g_extend_client.handle != nullptr) qmi_client_release(g_extend_client.handle);
  if (g_extend_client.notifier != nullptr) qmi_client_release(g_extend_client.notifier);
  g_extend_client = {};
}
