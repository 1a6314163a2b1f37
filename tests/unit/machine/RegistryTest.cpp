// The registry as the other rooms and the rehearsal use it: exports whole and broken, and access lists.
#include "simwin/registry/Registry.h"

#include "platform/win32.h"
#include "simwin/registry/ExportFilter.h"
#include "simwin/registry/RegistryExport.h"
#include "tests/harness/Harness.h"

#include <optional>
#include <string>
#include <vector>

using machine::TheRegistry;

static std::string Utf16(std::string_view text) {
    std::string bytes = "\xFF\xFE";
    for (const char c : text) {
        bytes += c;
        bytes += '\0';
    }
    return bytes;
}

constexpr char Export[] = "Windows Registry Editor Version 5.00\r\n\r\n"
                          "[HKEY_LOCAL_MACHINE\\SYSTEM\\ControlSet001\\Enum\\A]\r\n"
                          "@=\"default\"\r\n"
                          "\"Port\\\\\\\"Name\"=\"COM\\\\\\\"3\"\r\n"
                          "\"Number\"=dword:0000002a ; a comment\r\n"
                          "\"Bytes\"=hex:01,02,\\\r\n"
                          "  fe\r\n"
                          "\"Multi\"=hex(7):61,00,00,00,62,00,00,00,00,00\r\n"
                          "\"Typed\"=hex(ffff0012):00,01\r\n"
                          "\"None\"=hex(0):\r\n"
                          "\"Gone\"=\"x\"\r\n\"Gone\"=-\r\n\r\n"
                          "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Enum\\B]\r\n"
                          "[-HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Enum\\B]\r\n";

// Reads and applies, with the notes; the error, if there is one.
static std::optional<machine::ExportError> Import(std::string_view bytes,
                                                  std::vector<machine::ExportNote>* notes = nullptr) {
    std::vector<machine::ExportedKey> keys;
    std::vector<machine::ExportNote> ofFile;
    const auto error = machine::ReadExport(bytes, keys, ofFile);
    if (!error) {
        machine::LeaveOutWrongTypes(keys, ofFile);
        machine::UnifyControlSets(keys);
        machine::ApplyExport(keys, TheRegistry());
    }
    if (notes) {
        *notes = ofFile;
    }
    return error;
}

TEST(Registry, ReadsExports) {
    for (const std::string& bytes : {Utf16(Export), Utf16(Export).substr(2), std::string(Export)}) {
        TheRegistry().DeleteTree("HKLM\\SYSTEM\\CurrentControlSet\\Enum");
        const auto error = Import(bytes);
        ASSERT_FALSE(error) << error->line << ":" << error->column << ": " << error->text;
        const machine::RegistryKey* key = TheRegistry().FindKey("HKLM\\system\\currentcontrolset\\enum\\a");
        ASSERT_TRUE(key);
        EXPECT_EQ(key->Path(), "HKLM\\SYSTEM\\CurrentControlSet\\Enum\\A");
        const struct {
            const char *name, *text;
            DWORD type;
        } rows[] = {{"", "default", 1},  {"Port\\\"Name", "COM\\\"3", 1}, {"Number", "42", 4}, {"Bytes", "01,02,fe", 3},
                    {"Multi", "a;b", 7}, {"Typed", "00,01", 0xFFFF0012},  {"None", "", 0}};
        ASSERT_EQ(key->values.size(), std::size(rows));
        for (size_t i = 0; i < std::size(rows); ++i) {
            EXPECT_EQ(key->values[i].name, rows[i].name);
            EXPECT_EQ(key->values[i].type, rows[i].type);
            EXPECT_EQ(machine::ValueText(key->values[i]), rows[i].text);
        }
        EXPECT_FALSE(TheRegistry().FindKey("HKLM\\SYSTEM\\CurrentControlSet\\Enum\\B"));
    }
}

TEST(Registry, SaysWhereAnExportIsBroken) {
    const std::string head = "REGEDIT4\r\n\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Broken]\r\n\"Whole\"=\"x\"\r\n";
    using Row = std::tuple<std::string, unsigned, unsigned>;
    for (const auto& [bytes, line, column] :
         {Row{"", 1, 1}, Row{"REGEDIT4\r\n\"Name\"=\"x\"\r\n", 2, 1}, Row{head + "\"Name\"=\"COM", 5, 8},
          Row{head + "\"Name\"=dword:0000", 5, 18}, Row{head + "\"Name\"=hex:01,02,\\\r\n", 6, 1},
          Row{head + "\"Name\"\r\n", 5, 7}, Row{head + "[HKEY_LOCAL_MACHINE\\SOFT", 5, 25},
          Row{head + "[HKEY_NOWHERE\\SOFTWARE]\r\n", 5, 2}, Row{head + "stray\r\n", 5, 1},
          Row{Utf16(Export) + "x", 17, 1}}) {
        SCOPED_TRACE(bytes.substr(bytes.size() > 20 ? bytes.size() - 20 : 0));
        const auto error = Import(bytes);
        ASSERT_TRUE(error);
        EXPECT_EQ(error->line, line);
        EXPECT_EQ(error->column, column) << error->text;
        EXPECT_FALSE(TheRegistry().FindKey("HKLM\\SOFTWARE\\Broken")) << "nothing is applied";
    }
}

// A value in the middle of others: it alone is missing, and its place is noted.
TEST(Registry, LeavesOutValuesThatCannotBeRead) {
    const std::string head = "; saved by somebody\r\n\r\nREGEDIT4\r\n\r\n[HKEY_CURRENT_CONFIG\\Software]\r\n"
                             "\"Other\"=dword:zz\r\n[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Enum\\A\\B\\C]\r\n"
                             "\"First\"=DWORD:0000002A\r\n";
    const char* const key = "HKLM\\SYSTEM\\CurrentControlSet\\Enum\\A\\B\\C";
    for (const char* damaged : {"\"Name\"=dword:xyz", "\"Name\"=hex:01,0g", "\"Name\"=hex:01,\\\r\n  0g,02,\\\r\n  03",
                                "\"Name\"=", "\"Name\"=\"a\"b", "\"Name\"=hex(zz):01", "\"Service\"=dword:00000001",
                                "\"ConfigFlags\"=\"0\"", "\"Name\"=dword:123456789", "\"HardwareID\"=\"USB\""}) {
        SCOPED_TRACE(damaged);
        TheRegistry().DeleteTree("HKLM\\SYSTEM\\CurrentControlSet\\Enum");
        std::vector<machine::ExportNote> notes;
        const auto error = Import(head + damaged + "\r\n\"Last\"=HEX(2):41,00\r\n", &notes);
        ASSERT_FALSE(error) << error->text;
        ASSERT_EQ(notes.size(), 1u);
        EXPECT_EQ(notes[0].line, 9u) << notes[0].text;
        const machine::RegistryKey* read = TheRegistry().FindKey(key);
        ASSERT_EQ(read->values.size(), 2u);
        EXPECT_EQ(machine::ValueText(read->values[0]), "42");
        EXPECT_EQ(machine::ValueText(read->values[1]), "A");
    }
    std::vector<machine::ExportNote> notes;
    EXPECT_FALSE(Import(Utf16("Windows Registry Editor Version 5.00\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Half]\n"
                              "\"Odd\"=hex(1):41,00,42\n"),
                        &notes));
    ASSERT_EQ(notes.size(), 1u) << "half a character";

    // As deep as the registry goes, and one level more.
    std::string deep = "HKEY_LOCAL_MACHINE\\SOFTWARE";
    for (int level = 1; level < 512; ++level) {
        deep += "\\k";
    }
    EXPECT_FALSE(Import("REGEDIT4\n[" + deep + "]\n[" + deep + "\\k]\n\"In\"=\"it\"\n", &notes));
    EXPECT_EQ(notes.size(), 1u);
    EXPECT_TRUE(TheRegistry().FindKey(deep));
    EXPECT_FALSE(TheRegistry().FindKey(deep + "\\k"));
}

TEST(Registry, TakesTheControlSetThatIsCurrent) {
    const auto setKey = [](const std::string& path, const std::string& text) {
        return "[HKEY_LOCAL_MACHINE\\" + path + "\\Control]\n\"Which\"=\"" + text + "\"\n";
    };
    const std::string select = "[HKEY_LOCAL_MACHINE\\SYSTEM\\Select]\n\"Current\"=dword:00000002\n";
    using Row = std::tuple<std::string, const char*, size_t>; // the export, the set that is taken, lines about it
    for (const auto& [bytes, taken, lines] :
         {Row{setKey("SYSTEM\\ControlSet001", "1"), "1", 0}, Row{setKey("SYSTEM\\ControlSet002", "2"), "2", 1},
          Row{setKey("SYSTEM\\ControlSet002", "2") + setKey("SYSTEM\\ControlSet001", "1"), "1", 2},
          Row{select + setKey("SYSTEM\\ControlSet002", "2") + setKey("SYSTEM\\ControlSet001", "1"), "2", 2},
          Row{setKey("SYSTEM\\CurrentControlSet", "c") + setKey("SYSTEM\\ControlSet001", "1") +
                  setKey("SYSTEM\\ControlSet003", "3"),
              "c", 2},
          Row{setKey("OFFLINE\\ControlSet001", "o"), "o", 1}}) {
        SCOPED_TRACE(bytes);
        std::vector<machine::ExportedKey> keys;
        std::vector<machine::ExportNote> notes;
        ASSERT_FALSE(machine::ReadExport("REGEDIT4\n" + bytes, keys, notes));
        EXPECT_EQ(machine::UnifyControlSets(keys).size(), lines);
        machine::ApplyExport(keys, TheRegistry());
        EXPECT_EQ(TheRegistry().GetString("HKLM\\SYSTEM\\CurrentControlSet\\Control", "Which"), taken);
        EXPECT_FALSE(TheRegistry().FindKey("HKLM\\OFFLINE"));
    }
}

TEST(Registry, AccountsAndListsDecideTogether) {
    using machine::MakeCaller;
    const auto list = machine::ParseSddl("O:BAG:SYD:P(D;;KW;;;BA)(A;;KA;;;SY)(A;CI;KR;;;BU)(A;OICIIO;GA;;;CO)");
    ASSERT_TRUE(list);
    EXPECT_EQ(machine::ToSddl(*list), "O:BAG:SYD:P(D;;KW;;;BA)(A;;KA;;;SY)(A;CI;KR;;;BU)(A;OICIIO;GA;;;CO)");
    const auto binary = machine::ToBinary(*list);
    EXPECT_EQ(machine::ParseBinary(binary.data(), binary.size()), list);
    for (size_t cut = 0; cut < binary.size(); ++cut) {
        EXPECT_FALSE(machine::ParseBinary(binary.data(), cut).has_value() && cut < binary.size() - 12) << cut;
    }
    const auto granted = [&list](const machine::Caller& caller, DWORD access) {
        return machine::GrantedAccess(*list, caller, access, machine::KeyMapping) != 0;
    };
    const auto anna = MakeCaller("LAB\\anna", false, false), admin = MakeCaller("LAB\\otto", true, false),
               filtered = MakeCaller("LAB\\otto", true, true), system = MakeCaller("NT AUTHORITY\\SYSTEM", true, false);
    EXPECT_TRUE(granted(anna, GENERIC_READ));
    EXPECT_FALSE(granted(anna, KEY_SET_VALUE));
    EXPECT_FALSE(granted(system, KEY_SET_VALUE)) << "the refusal comes first, and the system is an administrator";
    EXPECT_TRUE(granted(admin, WRITE_DAC)) << "the owner may change the list";
    EXPECT_FALSE(granted(filtered, WRITE_DAC)) << "what only counts for refusals makes no owner";
    EXPECT_TRUE(granted(filtered, KEY_QUERY_VALUE)) << "Users may";
    const auto child = machine::InheritFrom(*list, true, "S-1-5-21-1-2-3-1001");
    EXPECT_EQ(machine::ToSddl(child),
              "O:S-1-5-21-1-2-3-1001G:SYD:AI(A;CIID;KR;;;BU)(A;ID;GA;;;S-1-5-21-1-2-3-1001)(A;OICIIOID;GA;;;CO)");
}
