// Message tables, the codec that walks them, the trace, and the number readers.
#include <iomanip>
#include <sstream>

#include "all_services.h"
#include "gtest/gtest.h"
#include "modem_api/nas/nas_service.h"
#include "modem_api/sar/sar_service.h"
#include "modem_api/vs/vs_service.h"
#include "pdc_service.h"
#include "qcci/qmi_codec.h"
#include "qcci/trace.h"
#include "support/fake_modem.h"
#include "support/tool.h"
#include "uim_service.h"
#include "velmor_extend_service.h"
#include "velmor_tovi_test_parse.h"

namespace {

using namespace qmi;
using testing_support::Bytes;
using testing_support::bytes;
using testing_support::hex;

const qmi_idl_service_object& extension() {
  return *velmor_extend_get_service_object_internal_v01(1, 1, 6);
}

// A message in the words of its documents, to be held against them.
std::string text_of(std::span<const Field> fields, const std::string& indent) {
  std::ostringstream out;
  out << std::setfill('0');
  for (const Field& field : fields) {
    const Shape& shape = field.shape;
    constexpr const char* kForms[] = {"", " always", " up to", " up to, of 16 bits,"};
    out << indent;
    if (field.tlv != 0) out << std::hex << std::setw(2) << int(field.tlv) << std::dec << " ";
    out << (field.presence == Optional ? "optional " : "") << field.name << ":"
        << (shape.form == Form::One ? "" : kForms[int(shape.form)]);
    if (shape.form != Form::One) out << " " << shape.bound << " x";
    if (shape.member_count == 0) {
      out << (shape.is_signed ? " signed " : " ") << int(shape.wire_bytes) << " bytes";
    }
    out << (shape.hidden ? ", hidden" : "") << (shape.text ? ", text" : "")
        << (shape.payload != nullptr ? ", carries" : "") << (shape.lenient ? ", lenient" : "")
        << (shape.clipped ? ", clipped" : "") << "\n"
        << text_of({shape.members, shape.member_count}, indent + "  ");
  }
  return out.str();
}

TEST(MessageTables, AreThoseOfTheModem) {
  std::ostringstream out;
  out << std::setfill('0');
  for (const auto* service : all_services()) {
    out << std::hex << service->service_id << std::dec << " " << service->name << ", version "
        << int(service->major_version) << "\n";
    for (const Message& message : service->messages) {
      constexpr const char* kKinds[] = {"request", "response", "indication"};
      out << "  " << std::hex << std::setw(4) << message.id << std::dec << " "
          << kKinds[int(message.kind) / 2] << " " << message.name << "\n"
          << text_of(message.fields, "    ");
    }
  }
  testing_support::expect_golden(TOVI_TEST_DATA "/golden/messages.txt", out.str());
}

TEST(NameService, PacketsByteForByte) {
  const struct {
    ControlPacket packet;
    const char* bytes;
  } rows[] = {
      {{Control::NewServer, 0xFFE4, 0x101, 1, 6}, "04000000 e4ff0000 01010000 01000000 06000000"},
      {{Control::DelServer, 0x24, 1, 0, 7}, "05000000 24000000 01000000 00000000 07000000"},
      {{Control::NewLookup, 0x0B}, "0a000000 0b000000 00000000 00000000 00000000"},
      {{Control::DelLookup, 0x11}, "0b000000 11000000 00000000 00000000 00000000"},
  };
  for (const auto& row : rows) EXPECT_EQ(hex(bytes_of(row.packet)), hex(bytes(row.bytes)));
}

TEST(MessageTables, DeclaredSizesAreWhatTheRowsAddUpTo) {
  for (const auto* service : all_services()) {
    for (const Message& message : service->messages) {
      EXPECT_EQ(largest_body(message), message.wire_max)
          << service->name << " " << message.name << " " << int(message.kind);
      EXPECT_LE(message.wire_max, service->wire_max);
    }
  }
  EXPECT_EQ(extension().messages.size(), 14u);
  EXPECT_EQ(extension().wire_max, 1553u);
}

TEST(MessageTables, ServiceObjectIsGivenForItsVersionOnly) {
  EXPECT_EQ(extension().service_id, 65508u);
  EXPECT_EQ(velmor_extend_get_service_object_internal_v01(1, 2, 6), nullptr);
  EXPECT_EQ(velmor_extend_get_service_object_internal_v01(2, 1, 6), nullptr);
  EXPECT_EQ(velmor_extend_get_service_object_internal_v01(1, 1, 5), nullptr);
  EXPECT_EQ(sar_get_service_object_internal_v01(1, 14, 6), nullptr);
  EXPECT_EQ(nas_get_service_object_internal_v01(1, 396, 6), nullptr);
  EXPECT_EQ(uim_get_service_object_internal_v01(1, 109, 7), nullptr);
  EXPECT_EQ(pdc_get_service_object_internal_v01(1, 15, 6), nullptr);
  EXPECT_EQ(vs_get_service_object_internal_v01(1, 1, 6), nullptr);
  EXPECT_EQ(vs_get_service_object_internal_v01(1, 2, 6)->messages.size(), 24u + 24u + 4u);
}

// A message with every kind of row.
struct Pair {
  uint32_t wide;
  uint32_t name_len;
  uint8_t name[4];
};
struct Everything {
  qmi_response_type_v01 resp;
  uint16_t word;
  uint32_t list_len;
  Pair list[3];
  uint8_t option_valid;
  uint32_t option_len;
  uint16_t option[300];
  uint8_t secret_valid;
  uint64_t secret;
};
constexpr Field kPair[] = {
    {U8as32, QMI_FIELD(Pair, wide)},
    {Text(Counted8(U8, 4)), QMI_LIST(Pair, name)},
};
constexpr Field kEverything[] = {
    {0x02, Required, Result, QMI_FIELD(Everything, resp)},
    {0x03, Required, U16, QMI_FIELD(Everything, word)},
    {0x04, Required, Counted8(Struct(kPair, sizeof(Pair)), 3), QMI_LIST(Everything, list)},
    {0x10, Optional, Counted16(U16, 300), QMI_OPTIONAL_LIST(Everything, option)},
    {0x11, Optional, Hidden(U64), QMI_OPTIONAL(Everything, secret)},
};
constexpr Message kMessage(Kind::Response, 7, "everything", 650, sizeof(Everything), kEverything);

const char* const kRequired =
    "02 0400 0100 5e00"
    "03 0200 3412"
    "04 0900 02 07 02 6162 ff 02 6364";
const char* const kOptional =
    "10 0600 0200 0100 ffff"
    "11 0800 0102030405060708";

Everything sample() {
  Everything c{};
  c.resp = {1, 0x5e};
  c.word = 0x1234;
  c.list_len = 2;
  c.list[0] = {7, 2, {'a', 'b'}};
  c.list[1] = {255, 2, {'c', 'd'}};
  return c;
}

TEST(Codec, EncodesWhatIsValidInTableOrder) {
  EXPECT_EQ(largest_body(kMessage), kMessage.wire_max);
  Everything c = sample();
  uint8_t room[700];
  auto n = encode(kMessage, &c, room);
  ASSERT_TRUE(n);
  EXPECT_EQ(hex({room, *n}), hex(bytes(kRequired)));
  c.option_valid = c.secret_valid = 1;
  c.option_len = 2;
  c.option[0] = 1;
  c.option[1] = 0xffff;
  c.secret = 0x0807060504030201;
  n = encode(kMessage, &c, room);
  ASSERT_TRUE(n);
  EXPECT_EQ(hex({room, *n}), hex(bytes(std::string(kRequired) + kOptional)));
  for (size_t size = 0; size < *n; ++size) {
    EXPECT_FALSE(encode(kMessage, &c, {room, size})) << size;
  }
}

TEST(Codec, RefusesToEncodeWhatTheWireCannotSay) {
  uint8_t room[700];
  Everything c = sample();
  c.list_len = 4;
  EXPECT_FALSE(encode(kMessage, &c, room));
  c = sample();
  c.list[1].name_len = 5;
  EXPECT_FALSE(encode(kMessage, &c, room));
  c = sample();
  c.list[0].wide = 256;
  EXPECT_FALSE(encode(kMessage, &c, room));
  c = sample();
  c.resp.error = 0x10000;
  EXPECT_FALSE(encode(kMessage, &c, room));
}

TEST(Codec, DecodesInAnyOrderAndSkipsTheUnknown) {
  Everything c;
  ASSERT_TRUE(decode(kMessage, bytes(std::string("7f 0200 0000") + kOptional + kRequired), &c));
  Everything want = sample();
  EXPECT_EQ(c.resp.error, want.resp.error);
  EXPECT_EQ(c.word, want.word);
  ASSERT_EQ(c.list_len, 2u);
  EXPECT_EQ(c.list[1].wide, 255u);
  EXPECT_EQ(memcmp(c.list[1].name, "cd\0\0", 4), 0);
  EXPECT_EQ(c.option_valid, 1);
  EXPECT_EQ(c.option[1], 0xffff);
  EXPECT_EQ(c.secret, 0x0807060504030201u);
}

TEST(Codec, OfARepeatedTlvTheLastCounts) {
  Everything c;
  ASSERT_TRUE(decode(kMessage, bytes(std::string(kRequired) + "04 0300 01 09 00"), &c));
  ASSERT_EQ(c.list_len, 1u);
  EXPECT_EQ(c.list[0].wide, 9u);
  EXPECT_EQ(c.list[1].wide, 0u);
}

TEST(Codec, MalformedBodiesFailAndLeaveTheStructureCleared) {
  const std::string word = "03 0200 3412", list = "04 0100 00", result = "02 0400 0000 0000";
  const struct {
    const char* what;
    std::string body;
  } rows[] = {
      {"a required TLV is missing", result + word},
      {"two of three header bytes", result + word + list + "10 00"},
      {"the value ends past the message", result + word + list + "10 0300 0000"},
      {"a scalar cut short", result + list + "03 0100 34"},
      {"bytes left over in a known TLV", result + list + "03 0300 341200"},
      {"a count above its bound", result + word + "04 0100 04"},
      {"a count above what its TLV holds", result + word + "04 0400 02 07 01 61"},
      {"a nested count above its bound", result + word + "04 0800 01 07 05 6162636465"},
      {"a nested count past its TLV", result + word + "04 0400 01 07 04 61"},
      {"an empty TLV", result + word + list + "10 0000"},
      {"a 16-bit count above its bound", result + word + list + "10 0200 2d01"},
  };
  for (const auto& row : rows) {
    Everything c;
    memset(&c, 0xaa, sizeof c);
    EXPECT_FALSE(decode(kMessage, bytes(row.body), &c)) << row.what;
    EXPECT_EQ(hex({reinterpret_cast<const uint8_t*>(&c), sizeof c}), std::string(2 * sizeof c, '0'))
        << row.what;
  }
}

// Only whole TLVs may be cut away.
TEST(Codec, EveryCutOfAMessageIsFoundOut) {
  const Bytes whole = bytes(std::string(kRequired) + kOptional);
  const size_t required = bytes(kRequired).size();
  Everything c;
  for (size_t size = 0; size < whole.size(); ++size) {
    const bool good = size == required || size == whole.size() - 11;
    EXPECT_EQ(decode(kMessage, std::span(whole).first(size), &c), good) << size;
  }
}

// What a phone tells of a configuration: storage (0x14) stands before the base version (0x16).
TEST(Codec, AConfigurationsBaseVersionIsNotItsStorage) {
  const Message* message =
      pdc_get_service_object_internal_v01(1, 16, 6)->find(Kind::Indication, 0x28);
  pdc_get_config_info_ind_msg_v01 info{};
  ASSERT_TRUE(decode(*message,
                     bytes("01 0200 0000 16 0400 0a000000 14 0400 02000000 13 0400 010a0000"
                           "12 0500 04 44657363 11 0400 88130000"),
                     &info));
  EXPECT_EQ(info.total_size, 5000u);
  EXPECT_EQ(info.config_version, 0x0A01u);
  EXPECT_EQ(info.base_version_valid, 1);
  EXPECT_EQ(info.base_version, 10u);
}

TEST(Trace, PutsAMessageIntoWordsAndBytes) {
  const qmi_idl_service_object service = {"demo", 1, 1, 0, 6, 700, {&kMessage, 1}};
  const Bytes packet = testing_support::packet(
      Kind::Response, 3, 7,
      bytes("02 0400 0100 5e00 03 0200 3412 04 0900 02 07 02 6122 ff 02 6307"
            "11 0800 0102030405060708 55 0100 07"));
  EXPECT_EQ(trace::text('<', service, packet, {}, false),
            "< demo 0x0007 everything rsp #3 len 39\n"
            "  resp = {result = 1, error = 94}\n"
            "  word = 4660\n"
            "  list = [{wide = 7, name = \"a\\\"\"}, {wide = 255, name = \"c\\x07\"}]\n"
            "  secret = ..\n"
            "  0x55 = 1 bytes: ..\n"
            "  02 03 00 07 00 27 00 02 04 00 01 00 5e 00 03 02 00 34 12 04 09 00 02 07 02 61 22 ff "
            "02 63 07 11\n"
            "  08 00 .. .. .. .. .. .. .. .. 55 01 00 ..\n");
  EXPECT_NE(trace::text('<', service, packet, {}, true).find("secret = 578437695752307201\n"),
            std::string::npos);
  EXPECT_EQ(trace::text('<', service, bytes("0201"), {}, false),
            "< demo malformed len 2\n  02 01\n");
  // Where decoding stopped, if it did.
  const struct {
    const char* body;
    const char* said;
  } rows[] = {
      {"02 0400 0000 0000 03 0200 3412 04 0900 02 07 02 6122 ff 02 6307", ""},
      {"02 0400 0000 0000 04 0100 00", "  not decoded: 0x03 is missing\n"},
      {"02 0400 0000 0000 03 0100 34 04 0100 00", "  not decoded: 0x03 is malformed\n"},
      {"02 0400 0000 0000 03 0200 3412 04 0100 02", "  not decoded: 0x04 is malformed\n"},
      {"02 0400 0000 0000 03 0500 3412", "  not decoded: 0x03 is malformed\n"},
  };
  for (const auto& row : rows) {
    const std::string text = trace::text(
        '<', service, testing_support::packet(Kind::Response, 3, 7, bytes(row.body)), {}, false);
    const size_t at = text.find("  not decoded");
    EXPECT_EQ(at == std::string::npos ? "" : text.substr(at, text.find('\n', at) + 1 - at),
              row.said)
        << row.body;
  }
  EXPECT_EQ(trace::text('<', service, bytes("0201 0007 0099 00 11"), {}, false),
            "< demo malformed len 8\n  02 01 00 07 00 99 00\n");
  // Cut anywhere, it still ends and shows every byte.
  const auto whole = static_cast<uint16_t>(packet.size() - kHeaderBytes);
  for (uint16_t size = 0; size < whole; ++size) {
    Bytes cut(packet.begin(), packet.begin() + static_cast<ptrdiff_t>(kHeaderBytes) + size);
    memcpy(&cut[5], &size, 2);
    EXPECT_NE(trace::text('<', service, cut, {}, false), "") << size;
  }
}

// Whatever the modem makes of it: "ab" is what must not be seen.
TEST(Trace, HidesWhatAModemMayTellInAnotherWay) {
  const qmi_idl_service_object& uim = *uim_get_service_object_internal_v01(1, 109, 6);
  const qmi_idl_service_object& extend = *velmor_extend_get_service_object_internal_v01(1, 1, 6);
  const std::string good = "02 0400 0000 0000", zeros(1024, '0');
  const std::string head = "01 0400 00000000 02 0400 00020000 ", payload = "10 0002" + zeros;
  const Bytes reset = bytes("01 0100 02 02 0a00 0800 80e2910002 bf3400");
  const Bytes get_eid = bytes("01 0100 02 02 0c00 0a00 80e2910006 bf3e035c015a");
  const Bytes imei = bytes("01 0400 02000000 02 0400 00020000 10 0002 01002602" + zeros.substr(8));
  const Bytes item_77 =
      bytes("01 0400 02000000 02 0400 00020000 10 0002 01004d00" + zeros.substr(8));
  constexpr Kind kResponse = Kind::Response, kIndication = Kind::Indication;
  const struct {
    const char* what;
    const qmi_idl_service_object& service;
    Kind kind;
    uint16_t message;
    std::string body;
    std::span<const uint8_t> request;
    bool shown;
  } rows[] = {
      {"behind an EID of no bytes", uim, kResponse, 0x65, good + "10 0300 00 abab", {}, false},
      {"behind an EID's length", uim, kResponse, 0x65, good + "10 0100 10 abababab", {}, false},
      {"an EID behind a result", uim, kResponse, 0x65, "02 0600 0000 0000 abab", {}, false},
      {"an EID in another TLV", uim, kResponse, 0x65, good + "77 0200 abab", {}, false},
      {"an EID in a request", uim, Kind::Request, 0x65, "10 0200 abab", {}, false},
      {"an unknown message", uim, kResponse, 0x66, good + "10 0200 abab", {}, false},
      {"a list of cards", uim, kResponse, 0x2f, good + "77 0200 abab", {}, true},
      {"the answer to a selection", uim, kResponse, 0x42, good + "12 0200 01 ab", {}, false},
      {"the answer to a reset", uim, kResponse, 0x3b, good + "10 0400 0200 abab", reset, true},
      {"a long answer's token", uim, kResponse, 0x3b, good + "11 0600 ab00 ab000000", get_eid,
       true},
      {"to another command", uim, kResponse, 0x3b, good + "10 0400 0200 abab", get_eid, false},
      {"the same in another TLV", uim, kResponse, 0x3b, good + "13 0200 abab", get_eid, false},
      {"a late answer of a card", uim, kResponse, 0x3b, good + "10 0400 0200 abab", {}, false},
      {"an NV item", extend, kResponse, 2, head + payload + "11 0200 abab", item_77, true},
      {"beside the IMEI", extend, kResponse, 2, head + payload + "11 0200 abab", imei, false},
      {"behind a short IMEI", extend, kResponse, 2, head + "10 0100 00 abababab", imei, false},
      {"a late answer",
       extend,
       kResponse,
       2,
       head + "10 0002" + std::string(1024, 'a') + "ab",
       {},
       false},
      {"an indication", extend, kIndication, 3, head + "10 0002 abab" + zeros.substr(4), {}, false},
  };
  for (const auto& row : rows) {
    const Bytes packet = testing_support::packet(row.kind, 1, row.message, bytes(row.body));
    const std::string text = trace::text('<', row.service, packet, row.request, false);
    const bool shown =
        text.find(" ab") != std::string::npos || text.find("171") != std::string::npos;
    EXPECT_EQ(shown, row.shown) << row.what << ":\n" << text;
    EXPECT_NE(trace::text('<', row.service, packet, row.request, true).find(" ab"),
              std::string::npos);
  }
}

TEST(NumberReaders, FollowTheirRules) {
  const struct {
    const char* text;
    int string_value;
    int hex_value;
  } rows[] = {
      {"", 0, 0},
      {"1F", 1, 31},
      {"ff", 0, 255},
      {"7fffffff", 7, 2147483647},
      {"1G", 1, 16},
      {"0x1a", 26, 26},
      {"0X1a", 26, 26},
      {"012", 12, 18},
      {"0x", 0, 0},
      {"-5", -5, 5},
      {"  7x", 7, 0x70},
      {"80000000", 80000000, 2147483647},
      {"100000001", 100000001, static_cast<int>(2147483648u)},
      {"1000000000000000000000000000000000000000000000000000000000000", -1, 2147483647},
  };
  for (const auto& row : rows) {
    std::string text = row.text;
    EXPECT_EQ(velmor_string_to_int(text.data()), row.string_value) << text;
    EXPECT_EQ(velmor_hex_string_to_int(text.data()), row.hex_value) << text;
  }
}

TEST(NumberReaders, ByteToHexWritesTwoDigitsAByteAndNoMore) {
  unsigned char in[] = {0x0A, 0xFF, 0x12};
  char out[] = "......";
  velmor_byte_to_hex(in, 2, out);
  EXPECT_STREQ(out, "0aff..");
  velmor_byte_to_hex(in, -1, out);
  velmor_byte_to_hex(nullptr, 3, out);
  EXPECT_STREQ(out, "0aff..");
}

}  // namespace
