#include "mon_Health.h"

#include "channel/cmdal_CmdAPI.h"
#include "platform/errors.h"

namespace mon {

bool CheckService(std::string* reason) {
  std::u16string ignored;
  if (cmdal_GetProductInfo(&ignored)) {
    *reason = "the command-handler service answered";
    return true;
  }
  *reason = "the command-handler service did not answer (error " + std::to_string(plat::LastError()) + ")";
  return false;
}

}  // namespace mon
