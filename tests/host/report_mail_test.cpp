// The text of a mail, addresses, the spool, and the notes of deliveries that nobody can ask about.
#include "delivery_note.h"
#include "mail_text.h"
#include "report_mail.h"
#include "support/has.h"
#include "support/scratch.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <openssl/evp.h>

using namespace kmhost;

namespace {

report_fields hello() {
    report_fields report;
    report.key = "A1-b2";
    report.name = "hello";
    report.version = "1.0";
    report.operation = "install";
    report.exit_codes_msg = "done";
    report.endpoint_name = "desk";
    report.exec_time = "2026-11-21T13:52:43Z";
    return report;
}

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    for (size_t at = 0, end; at < text.size(); at = end + 2) {
        end = text.find("\r\n", at);
        if (end == std::string::npos)
            end = text.size();
        lines.push_back(text.substr(at, end - at));
    }
    return lines;
}

// What a reader of mail makes of it.
std::string decoded(const std::string& text) {
    std::string all;
    for (size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '=')
            all += text[at];
        else if (text.compare(at, 3, "=\r\n") != 0)
            all += static_cast<char>(std::stoi(text.substr(at + 1, 2), nullptr, 16));
        at += text[at] == '=' ? 2 : 0;
    }
    return all;
}

std::string decoded_words(const std::string& value) {
    std::string all;
    for (const auto& line : lines_of(value)) {
        const size_t begin = line.find("=?UTF-8?B?");
        EXPECT_LE(line.size(), 76u);
        EXPECT_TRUE(begin == 0 || (begin == 1 && line[0] == ' ')) << line;
        const std::string coded = line.substr(begin + 10, line.size() - begin - 12);
        std::string part(coded.size(), '\0');
        int length = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(part.data()),
                                     reinterpret_cast<const unsigned char*>(coded.data()),
                                     static_cast<int>(coded.size()));
        while (length > 0 && !part[static_cast<size_t>(length) - 1])
            --length;
        part.resize(static_cast<size_t>(length));
        EXPECT_NE(static_cast<unsigned char>(part[0]) & 0xC0, 0x80) << "half a character";
        all += part;
    }
    return all;
}

} // namespace

TEST(MailText, IsTheSameForEveryDelivery) {
    EXPECT_EQ(mail_text(hello(), "k@example.org", "<a@example.org>"),
              "Date: Sat, 21 Nov 2026 13:52:43 +0000\r\n"
              "From: <k@example.org>\r\n"
              "To: <a@example.org>\r\n"
              "Subject: install of hello 1.0 on desk: done\r\n"
              "Message-ID: <A1-b2@example.org>\r\n"
              "Auto-Submitted: auto-generated\r\n"
              "MIME-Version: 1.0\r\n"
              "Content-Type: text/plain; charset=UTF-8\r\n"
              "Content-Transfer-Encoding: quoted-printable\r\n"
              "\r\n"
              "Package: hello\r\nVersion: 1.0\r\nOperation: install\r\nOutcome: done\r\n"
              "Time: 2026-11-21T13:52:43Z\r\nMachine: desk\r\nReport: A1-b2\r\n");
}

TEST(MailText, NoFieldWritesAHead) {
    report_fields report = hello();
    report.name = "x\r\nBcc: all@example.org\r\n\r\nbody";
    report.endpoint_name = "y\nBcc: all@example.org";
    report.exit_codes_msg = "\rz\v\f";
    report.message = "\r\n.\r\nMAIL FROM:<a>\r\nBcc: c";
    const std::string text = mail_text(report, "k@example.org", "<a@example.org>");
    const std::string head = text.substr(0, text.find("\r\n\r\n"));
    for (const auto& line : lines_of(head))
        EXPECT_NE(line.compare(0, 4, "Bcc:"), 0) << line;
    EXPECT_EQ(lines_of(head).size(), 10u) << head; // the subject takes a second line
    for (const char one : text)
        EXPECT_TRUE((one >= ' ' && one <= '~') || one == '\r' || one == '\n');
}

TEST(MailText, HeadsComeBackWhole) {
    const std::string plain = "install of hello 1.0: done";
    EXPECT_EQ(encoded_head(plain), plain);
    for (const std::string& text : {std::string("Gr\xC3\xB6\xC3\x9F"
                                                "e \xE2\x82\xAC"),
                                    std::string("=?UTF-8?Q?not_ours?="), std::string(90, 'x'), [] {
                                        std::string long_one = "a";
                                        for (int i = 0; i < 60; ++i)
                                            long_one += "\xF0\x9F\x98\x80";
                                        return long_one;
                                    }()})
        EXPECT_EQ(decoded_words(encoded_head(text)), text);
    EXPECT_LE(decoded_words(encoded_head(std::string(100000, '\xC3'))).size(), 400u);
}

TEST(MailText, TextsComeBackWhole) {
    std::string every;
    for (int i = 1; i < 256; ++i)
        every += static_cast<char>(i == '\n' || i == '\r' ? 'x' : i);
    for (const std::string& text :
         {std::string("a=b\r\nc "), std::string("trailing \r\nblank \r\n"), std::string(1000, 'y'),
          std::string(500, '\xFF'), every, std::string("\0\0", 2), std::string("a\rb")}) {
        const std::string coded = quoted_printable(text);
        EXPECT_EQ(decoded(coded), text);
        for (const auto& line : lines_of(coded)) {
            EXPECT_LE(line.size(), 76u);
            EXPECT_TRUE(line.empty() || line.back() != ' ') << "lost on the way: " << line;
        }
    }
    EXPECT_EQ(quoted_printable("a\nb"), "a\r\nb");
}

TEST(MailText, AddressesAreListedOrRefused) {
    const struct {
        const char* list;
        size_t count; // 0: refused, but for a list of none
        bool good;
    } cases[] = {{"", 0, true},
                 {" , ,", 0, true},
                 {"root", 1, true},
                 {" a@b.example ,c+d@e.example", 2, true},
                 {"a b@c", 0, false},
                 {"a@b\r\nRCPT TO:<c@d>", 0, false},
                 {"<a@b>", 0, false},
                 {"a@b,\"c\"@d", 0, false},
                 {"gr\xC3\xBC\xC3\x9F"
                  "e@b",
                  0, false}};
    for (const auto& one : cases) {
        std::vector<std::string> addresses;
        std::string why;
        EXPECT_EQ(read_mail_addresses(one.list, addresses, why), one.good) << one.list;
        EXPECT_EQ(why.empty(), one.good) << one.list;
        if (one.good) {
            EXPECT_EQ(addresses.size(), one.count) << one.list;
        }
    }
}

TEST(MailSpool, ThatCannotBeWrittenFailsAndComesBack) {
    km_test::scratch_dir dir;
    report_settings settings;
    settings.working_directory = dir.at("work");
    settings.mail_to = "a@example.org";
    settings.mail_spool = dir.write("spool", "a file");
    std::string why;
    EXPECT_EQ(deliver_to_mail(hello(), settings, why), delivery::failed);
    EXPECT_HAS(why, "spool");
    std::filesystem::remove(dir.at("spool"));
    EXPECT_EQ(deliver_to_mail(hello(), settings, why), delivery::done);
    EXPECT_TRUE(dir.exists("spool/A1-b2.eml"));
}

TEST(MailServer, IsNotAskedWhenItMayHaveTheReport) {
    km_test::scratch_dir dir;
    report_settings settings;
    settings.working_directory = dir.at("work");
    settings.mail_to = "a@example.org";
    settings.mail_server = "127.0.0.1";
    settings.mail_port = 1; // nobody listens
    std::string why;
    const struct {
        const char* note;
        bool again;
        delivery wanted;
    } cases[] = {{"ready\n", false, delivery::failed},
                 {"begun\n", false, delivery::done},
                 {"begun\n", true, delivery::failed},
                 {"taken\n", true, delivery::done},
                 {"", false, delivery::done}};
    for (const auto& one : cases) {
        dir.write("work/deliveries/A1-b2.mail", one.note);
        settings.mail_again = one.again;
        EXPECT_EQ(deliver_to_mail(hello(), settings, why), one.wanted) << one.note;
    }
    delivery_note::forget(settings.working_directory, "A1-b2");
    EXPECT_EQ(deliver_to_mail(hello(), settings, why), delivery::failed);
    for (const char* server : {"a b", "x/../y", "a@b", "a\r\nb"}) {
        settings.mail_server = server;
        EXPECT_EQ(deliver_to_mail(hello(), settings, why), delivery::failed);
        EXPECT_HAS(why, "no name of a server");
    }
}
