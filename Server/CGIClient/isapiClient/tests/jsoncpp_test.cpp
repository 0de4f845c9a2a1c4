// jsoncpp as the extension will use it: a strict reader with a nesting limit
// for what clients send, and a compact writer for replies. The same
// expectations run natively (Debian's shared library) and under Wine (the
// static library cross-built from Debian's sources), so a difference between
// the two builds shows here.
#include <json/json.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>

namespace {

enum class Outcome { kParsed, kRefused, kThrew };

struct Parsed {
  Outcome outcome = Outcome::kRefused;
  Json::Value root;
  std::string errors;
};

Parsed ParseStrict(std::string_view text, int stackLimit = 16) {
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  builder["stackLimit"] = stackLimit;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Parsed parsed;
  try {
    if (reader->parse(text.data(), text.data() + text.size(), &parsed.root, &parsed.errors)) {
      parsed.outcome = Outcome::kParsed;
    }
  } catch (const Json::Exception& e) {
    parsed.outcome = Outcome::kThrew;
    parsed.errors = e.what();
  }
  return parsed;
}

std::string WriteCompact(const Json::Value& value, bool utf8 = false) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  if (utf8) builder["emitUTF8"] = true;
  return Json::writeString(builder, value);
}

std::string Nested(char open, std::string_view inner, char close, int depth) {
  std::string text;
  for (int i = 0; i < depth; ++i) text += open;
  text += inner;
  for (int i = 0; i < depth; ++i) text += close;
  return text;
}

TEST(JsonCpp, ReadsADocumentStrictly) {
  const Parsed parsed = ParseStrict(
      R"({"uid":"6F9619FF-8B86-D011-B42D-00C04FC964FF","seq":-9007199254740993,)"
      R"("max":18446744073709551615,"ratio":2.5,"name":"caf\u00e9 \ud83d\ude00",)"
      "\"raw\":\"caf\xC3\xA9\",\"flags\":[true,false,null],\"empty\":{}}\r\n");
  ASSERT_EQ(parsed.outcome, Outcome::kParsed) << parsed.errors;
  const Json::Value& root = parsed.root;
  ASSERT_TRUE(root.isObject());
  EXPECT_EQ(root.size(), 8u);
  EXPECT_EQ(root["uid"].asString(), "6F9619FF-8B86-D011-B42D-00C04FC964FF");
  ASSERT_TRUE(root["seq"].isInt64());
  EXPECT_EQ(root["seq"].asInt64(), -9007199254740993LL);
  ASSERT_TRUE(root["max"].isUInt64());
  EXPECT_FALSE(root["max"].isInt64());
  EXPECT_EQ(root["max"].asUInt64(), 18446744073709551615ULL);
  EXPECT_EQ(root["ratio"].asDouble(), 2.5);
  EXPECT_EQ(root["name"].asString(), "caf\xC3\xA9 \xF0\x9F\x98\x80");
  EXPECT_EQ(root["raw"].asString(), "caf\xC3\xA9");
  ASSERT_EQ(root["flags"].size(), 3u);
  EXPECT_TRUE(root["flags"][0].asBool());
  EXPECT_FALSE(root["flags"][1].asBool());
  EXPECT_TRUE(root["flags"][2].isNull());
  EXPECT_TRUE(root["empty"].isObject());
  EXPECT_TRUE(root["empty"].empty());
}

TEST(JsonCpp, NestingPastTheStackLimitThrows) {
  EXPECT_EQ(ParseStrict(Nested('[', "", ']', 4), 4).outcome, Outcome::kParsed);
  EXPECT_EQ(ParseStrict(Nested('[', "", ']', 5), 4).outcome, Outcome::kThrew);
  // An object's member counts one level more than an array's element.
  std::string objects;
  for (int i = 0; i < 3; ++i) objects += "{\"a\":";
  EXPECT_EQ(ParseStrict(objects + "1}}}", 4).outcome, Outcome::kParsed);
  EXPECT_EQ(ParseStrict("{\"a\":" + objects + "1}}}}", 4).outcome, Outcome::kThrew);
  // Deep enough to overflow the stack of a reader without the limit.
  const Parsed deep = ParseStrict(Nested('[', "", ']', 200000));
  EXPECT_EQ(deep.outcome, Outcome::kThrew);
  EXPECT_NE(deep.errors.find("stackLimit"), std::string::npos) << deep.errors;
}

TEST(JsonCpp, WritesCompactBytes) {
  Json::Value reply(Json::objectValue);
  reply["uid"] = "caf\xC3\xA9";
  reply["seq"] = Json::Int64(-9007199254740993LL);
  reply["max"] = Json::UInt64(18446744073709551615ULL);
  reply["tenth"] = 0.1;
  reply["whole"] = 3.0;
  reply["huge"] = 1e21;
  reply["list"].append(true);
  reply["list"].append(Json::Value());
  reply["list"].append("q\"\\/\x01\t");
  reply["nul"] = std::string("a\0b", 3);
  reply["empty"] = Json::Value(Json::objectValue);

  // Members in key order, no spaces, no line end; numbers that read back
  // the same; control characters and, by default, non-ASCII escaped.
  const std::string members =
      R"("empty":{},"huge":1e+21,"list":[true,null,"q\"\\/\u0001\t"],"max":18446744073709551615,)"
      R"("nul":"a\u0000b","seq":-9007199254740993,"tenth":0.10000000000000001,)";
  EXPECT_EQ(WriteCompact(reply), "{" + members + R"("uid":"caf\u00e9","whole":3.0})");
  EXPECT_EQ(WriteCompact(reply, /*utf8=*/true), "{" + members + "\"uid\":\"caf\xC3\xA9\",\"whole\":3.0}");
  EXPECT_EQ(WriteCompact(Json::Value(Json::arrayValue)), "[]");

  const Parsed back = ParseStrict(WriteCompact(reply));
  ASSERT_EQ(back.outcome, Outcome::kParsed) << back.errors;
  EXPECT_EQ(back.root, reply);
}

}  // namespace
