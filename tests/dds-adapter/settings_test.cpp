// What the adapter says of settings and streams that it cannot take.
#include "../platform/records.h"
#include "host.h"

// Lines of data/settings.txt.
TEST(DdsAdapter, WhatIsWrongWithASettingIsSaid)
{
    Host host(21, "batch=9"); // which no writer takes over
    QEL_FerrionStreamWriter *writer = host.writer("s");
    host.expectError("");
    host.remove(writer);
    for (const std::string &line : linesOf("dds-adapter/data/settings.txt")) {
        const size_t arrow = line.find(" -> ");
        const std::string settings = line.substr(2, arrow - 2);
        if (line[0] == 'c') {
            const Properties properties(settings);
            EXPECT_EQ(host.table().create_connection(host.plugin, nullptr, nullptr, nullptr,
                                                     nullptr, nullptr, nullptr, &properties.raw,
                                                     host.fresh()),
                      nullptr);
        } else if (line[0] == 'r') {
            EXPECT_EQ(host.reader("s", settings), nullptr);
        } else if (QEL_FerrionStreamWriter *made = host.writer("s", settings); made != nullptr) {
            host.remove(made);
        }
        host.expectError(line.substr(arrow + 4));
    }
    QEL_FerrionStreamReader *reader = host.reader("s", "batch=5");
    const Properties allowed("batch=7; reliability=reliable");
    EXPECT_NE(host.table().stream_reader_update(reader, &allowed.raw, host.fresh()), 0);
    const Properties rejected("reliability=best_effort");
    EXPECT_EQ(host.table().stream_reader_update(reader, &rejected.raw, host.fresh()), 0);
    host.expectError("\"reliability\" cannot be changed while in use (those "
                     "that can: batch, batch_bytes)");
    host.remove(reader);
    host.table().connection_update(host.connection, &allowed.raw, host.fresh());
    host.expectError("unknown property \"batch\", which belongs to sessions and readers");
    const Properties other("domain=22");
    host.table().connection_update(host.connection, &other.raw, host.fresh());
    host.expectError("\"domain\" cannot be changed while in use (those that can: none)");
    EXPECT_EQ(FerryAdapter_dds_create(&allowed.raw, host.fresh()), nullptr);
    host.expectError("which belongs to sessions and readers (known: none)");
    // A text that is cut ends with a whole character.
    std::string umlauts;
    for (int i = 0; i < 1000; ++i) {
        umlauts += "\xc3\xa4";
    }
    for (const std::string &value : {umlauts, "x" + umlauts}) {
        EXPECT_EQ(host.reader("s", "batch=" + value), nullptr);
        EXPECT_EQ(host.error(), ("reader of stream \"s\": property \"batch\" must be a whole "
                                 "number from 1 to 1000000, not \"" +
                                 value)
                                    .substr(0, host.error().size()));
        EXPECT_EQ(host.error().back(), '\xa4');
    }
    EXPECT_EQ(host.reader(nullptr), nullptr);
    EXPECT_EQ(host.error(),
              "reader of stream \"\": it has no name, and property \"topic\" says none");
    host.remove(static_cast<QEL_FerrionStreamReader *>(nullptr));
    host.remove(static_cast<QEL_FerrionStreamWriter *>(nullptr));
    host.stream.typeRepresentationKind = 1;
    EXPECT_EQ(host.reader("s"), nullptr);
    host.expectError("is given as representation 1; only 0");
    host.stream.typeRepresentationKind = 0;
    host.stream.typeRepresentation = nullptr;
    EXPECT_EQ(host.reader("s"), nullptr);
    host.expectError("it has no type");
}
