// What a command handler works with.
#pragma once

#include "sig_Signer.h"
#include "st_LogWriter.h"
#include "st_Store.h"

namespace cmd {

struct Context {
  st::Store& store;
  sig::Signer& signer;
  st::LogWriter& logs;
};

}  // namespace cmd
