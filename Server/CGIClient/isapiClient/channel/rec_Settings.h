// The records of the settings requests: the removal of a pending
// configuration record, the OPP report, the client-existence check and the
// settings texts the service answers with.
#pragma once

#include <cstdint>
#include <string>

#include "rec_Block.h"
#include "ser_Serializer.h"

// The alert message kinds a client may ask for (requestid 204, function
// type); every other kind is refused.
inline constexpr int32_t kAlertMessageKinds[] = {0, 1, 3, 5, 7, 8, 12, 13, 128};

// "CMDHLV2_CLN_REMOVE_CONFIG_REC": 128 bytes, zero where not filled.
struct tagCln_RemoveConfigRec : rec::Block<128> {
  static constexpr rec::Field kEvent{"config event", 0, 4, rec::Kind::kU32};
  static constexpr rec::Field kUid{"client uid", 4, 74, rec::Kind::kText};
  static constexpr rec::Field kRelease{"release", 78, 16, rec::Kind::kText};
  // 94: 34 bytes, zero.
};
inline constexpr rec::Field kRemoveConfigRecLayout[] = {tagCln_RemoveConfigRec::kEvent, tagCln_RemoveConfigRec::kUid,
                                                        tagCln_RemoveConfigRec::kRelease};
static_assert(rec::LayoutIsSound(kRemoveConfigRecLayout, tagCln_RemoveConfigRec::kSize), "removal record layout");

// "CMDHLV2_CLN_ACTIVE_RESTORE_OPP": the client's report that it activated
// or restored its OPP policy. Three items, in this order: the operation
// (32-bit signed), the uid (a 37-byte field of narrow text, terminated
// inside it), the release (an 8-byte field, likewise).
struct tagCln_ActiveRestoreOpp : ISerializable {
  static constexpr int32_t kActivated = 52;  // function type 1
  static constexpr int32_t kRestored = 53;   // function type 2
  static constexpr std::size_t kUidBytes = 37;
  static constexpr std::size_t kReleaseBytes = 8;

  int32_t operation = 0;
  uint8_t uid[kUidBytes] = {};
  uint8_t release[kReleaseBytes] = {};

  void SetUid(const std::string& text) { rec::PutNarrow(uid, kUidBytes, text); }
  void SetRelease(const std::string& text) { rec::PutNarrow(release, kReleaseBytes, text); }
  std::string Uid() const { return rec::GetNarrow(uid, kUidBytes); }
  std::string Release() const { return rec::GetNarrow(release, kReleaseBytes); }
  bool Serialize(ISerializer& s) override;
  bool Deserialize(ISerializer& s) override;
};

// The body of "CMDHLV2_CHECK_CLIENT_EXIST" and of
// "CMDHLV2_GET_DLP_DEPLOY_SETTINGS": the client uid as one wide string.
struct tagCln_ClientUid : ISerializable {
  std::u16string uid;
  bool Serialize(ISerializer& s) override { return ser::WriteWString(s, uid); }
  bool Deserialize(ISerializer& s) override { return ser::ReadWString(s, &uid); }
};

// The answer of "CMDHLV2_CHECK_CLIENT_EXIST": one signed 32-bit integer,
// 0 when the server does not know the client.
struct tagCln_ClientExists : ISerializable {
  int32_t exists = 0;
  bool Serialize(ISerializer& s) override { return ser::WriteI32(s, exists); }
  bool Deserialize(ISerializer& s) override { return ser::ReadI32(s, &exists); }
};

// The answer of "CMDHLV2_CLN_RQ_UPD" and "CMDHLV2_GET_DLP_DEPLOY_SETTINGS":
// one wide string, passed to the client unchanged.
struct tagCln_SettingsText : ISerializable {
  std::u16string text;
  bool Serialize(ISerializer& s) override { return ser::WriteWString(s, text); }
  bool Deserialize(ISerializer& s) override { return ser::ReadWString(s, &text); }
};

// The body of "CMDHLV2_CLN_RQ_UPD": nothing at all.
struct tagCln_EmptyBody : ISerializable {
  bool Serialize(ISerializer&) override { return true; }
  bool Deserialize(ISerializer&) override { return true; }
};
