// What a command handler works with.
#pragma once

#include "cmd_Metrics.h"
#include "sig_Signer.h"
#include "st_LogWriter.h"
#include "st_Store.h"
#include "st_Uploads.h"
#include "st_Vdi.h"

namespace cmd {

struct Context {
  st::Store& store;
  sig::Signer& signer;
  st::LogWriter& logs;
  // Null where uploads are not taken (a process that only reads commands):
  // their announcements are then dropped and no file is touched.
  st::Uploads* uploads = nullptr;
  // Null where VDI requests are not coordinated: they are answered empty.
  st::VdiCoordinator* vdi = nullptr;
  // Null where commands are not counted.
  CommandMetrics* metrics = nullptr;
};

}  // namespace cmd
