package com.qel.ferrion.adapters.file;

import com.fasterxml.jackson.core.JsonFactory;
import com.fasterxml.jackson.core.JsonParser;
import com.fasterxml.jackson.core.JsonProcessingException;
import com.fasterxml.jackson.core.JsonToken;
import com.qel.dds.TypeException;
import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.typecode.Kind;
import com.qel.ferrion.kit.BadRow;
import com.qel.ferrion.kit.Names;
import java.io.IOException;
import java.util.Map;

/**
 * JSON values to members of a sample. Members that the text does not name keep what the sample
 * holds, so the caller clears it first.
 */
final class JsonReader {
    private JsonReader() {}

    /** A factory whose parsers own no streams. Each decoder has one: its name table is shared. */
    static JsonFactory factory() {
        return new JsonFactory();
    }

    /** Sets a whole sample from one line. */
    static void readLine(JsonFactory factory, Value root, DynamicData data, byte[] bytes, int start,
            int length) throws BadRow {
        // The library takes a text with NUL bytes in front for UTF-16 or UTF-32, and then reads on
        // behind the line.
        for (int i = 0; i < Math.min(length, 4); i++) {
            if (bytes[start + i] == 0) {
                throw new BadRow("not JSON: a NUL character (column " + (i + 1) + ")");
            }
        }
        try (JsonParser parser = factory.createParser(bytes, start, length)) {
            parser.nextToken();
            readAll(parser, root, data);
        } catch (JsonProcessingException malformed) {
            throw malformed(malformed);
        } catch (IOException e) {
            throw new BadRow(e.getMessage());
        }
    }

    /** Whether a text is one object and nothing else. */
    static boolean isObject(byte[] text) {
        try (JsonParser parser = factory().createParser(text)) {
            return text.length > 0 && text[0] == '{' && text[text.length - 1] == '}'
                    && parser.nextToken() == JsonToken.START_OBJECT
                    && parser.skipChildren().currentToken() == JsonToken.END_OBJECT
                    && parser.nextToken() == null;
        } catch (IOException malformed) {
            return false;
        }
    }

    /** Sets a sequence or array from a cell's JSON text; an empty cell is an empty sequence. */
    static void readCell(JsonFactory factory, Value value, DynamicData data, String cell)
            throws BadRow {
        if (cell.isBlank() && value.kind == Kind.SEQUENCE) {
            data.setLength(value.place, 0);
            return;
        }
        try (JsonParser parser = factory.createParser(cell)) {
            parser.nextToken();
            readAll(parser, value, data);
        } catch (JsonProcessingException malformed) {
            throw malformed(malformed);
        } catch (IOException e) {
            throw new BadRow(e.getMessage());
        }
    }

    private static BadRow malformed(JsonProcessingException cause) {
        return new BadRow("not JSON: " + cause.getOriginalMessage().lines().findFirst().orElse("")
                + (cause.getLocation() == null ? ""
                        : " (column " + cause.getLocation().getColumnNr() + ")"));
    }

    private static void readAll(JsonParser parser, Value value, DynamicData data)
            throws IOException, BadRow {
        read(parser, value, data);
        if (parser.nextToken() != null) {
            throw new BadRow("text after the end of the value (column "
                    + parser.getTokenLocation().getColumnNr() + ")");
        }
    }

    /** Sets a place from the value the parser stands on, and leaves it on that value's end. */
    private static void read(JsonParser parser, Value value, DynamicData data)
            throws IOException, BadRow {
        switch (value.kind) {
        case STRUCT:
            readStruct(parser, value, data);
            break;
        case SEQUENCE:
        case ARRAY:
            readElements(parser, value, data);
            break;
        default:
            try {
                readScalar(parser, value, data);
            } catch (BadRow bad) {
                throw bad.in(value.path);
            } catch (IllegalArgumentException | TypeException rejected) {
                throw BadRow.rejected(value.path, rejected);
            }
            break;
        }
    }

    private static void expect(JsonParser parser, Value value, JsonToken token, String what)
            throws IOException, BadRow {
        if (parser.currentToken() != token) {
            throw new BadRow(value.path, "expected " + what + " and found " + found(parser));
        }
    }

    private static String found(JsonParser parser) throws IOException {
        JsonToken token = parser.currentToken();
        if (token == null) {
            return "nothing";
        }
        return token == JsonToken.START_OBJECT ? "an object"
                : token == JsonToken.START_ARRAY ? "an array" : BadRow.quote(parser.getText());
    }

    private static void readStruct(JsonParser parser, Value value, DynamicData data)
            throws IOException, BadRow {
        expect(parser, value, JsonToken.START_OBJECT, "an object");
        long round = value.nextRound();
        while (parser.nextToken() == JsonToken.FIELD_NAME) {
            Value member = value.members.get(parser.getCurrentName());
            if (member == null) {
                throw new BadRow(unknown(value, parser.getCurrentName()));
            }
            if (!member.firstIn(round)) {
                throw new BadRow("member \"" + member.path + "\" appears twice");
            }
            parser.nextToken();
            read(parser, member, data);
        }
    }

    private static String unknown(Value value, String name) {
        Map<String, Value> members = value.members;
        String path = value.path.isEmpty() ? name : value.path + "." + name;
        return BadRow.quote(path) + " is no member of the type"
                + Names.suggestion(name, members.keySet());
    }

    private static void readElements(JsonParser parser, Value value, DynamicData data)
            throws IOException, BadRow {
        expect(parser, value, JsonToken.START_ARRAY, "an array");
        boolean sequence = value.kind == Kind.SEQUENCE;
        int length = sequence ? 0 : value.size;
        if (sequence) {
            data.setLength(value.place, 0);
        }
        int count = 0;
        while (parser.nextToken() != JsonToken.END_ARRAY) {
            if (value.size > 0 && count == value.size) {
                throw new BadRow(value.path, "more than " + value.size + " elements");
            }
            if (count == length) {
                length = Math.max(8, 2 * length);
                length = value.size > 0 ? Math.min(length, value.size) : length;
                data.setLength(value.place, length);
            }
            read(parser, value.element(count++), data);
        }
        if (sequence && count < length) {
            data.setLength(value.place, count);
        } else if (!sequence && count < length) {
            throw new BadRow(value.path, count + " elements instead of " + length);
        }
    }

    private static void readScalar(JsonParser parser, Value value, DynamicData data)
            throws IOException, BadRow {
        JsonToken token = parser.currentToken();
        switch (value.kind) {
        case STRING:
            wantText(parser, "a string");
            data.setString(value.place, checkSurrogates(parser.getText()));
            break;
        case CHAR:
            wantText(parser, "a string of one character");
            Scalars.setChar(value, data, parser.getText());
            break;
        case BOOLEAN:
            if (token != JsonToken.VALUE_TRUE && token != JsonToken.VALUE_FALSE) {
                throw new BadRow("expected true or false and found " + found(parser));
            }
            data.setBoolean(value.place, token == JsonToken.VALUE_TRUE);
            break;
        case ENUM:
            if (token != JsonToken.VALUE_NUMBER_INT) {
                wantText(parser, "the name of an enumerator");
            }
            data.setInt(value.place, Scalars.enumOf(value, parser.getText()));
            break;
        case FLOAT:
            data.setFloat(value.place, Scalars.floatOf(realText(parser)));
            break;
        case DOUBLE:
            data.setDouble(value.place, Scalars.doubleOf(realText(parser)));
            break;
        default:
            readInteger(parser, value, data);
            break;
        }
    }

    private static void readInteger(JsonParser parser, Value value, DynamicData data)
            throws IOException, BadRow {
        if (parser.currentToken() != JsonToken.VALUE_NUMBER_INT) {
            throw new BadRow("expected a whole number and found " + found(parser));
        }
        if (parser.getNumberType() == JsonParser.NumberType.BIG_INTEGER) {
            Scalars.setInteger(value, data, Scalars.integerOf(value.kind, parser.getText()));
        } else {
            long number = parser.getLongValue();
            Scalars.setInteger(value, data, Scalars.checkRange(value.kind, number));
        }
    }

    /** Text of a floating-point value: a number, null for NaN, or a word for an infinity. */
    private static String realText(JsonParser parser) throws IOException, BadRow {
        JsonToken token = parser.currentToken();
        if (token == JsonToken.VALUE_NULL) {
            return "NaN";
        }
        boolean word = token == JsonToken.VALUE_STRING && Scalars.isWord(parser.getText());
        if (!word && token != JsonToken.VALUE_NUMBER_FLOAT && token != JsonToken.VALUE_NUMBER_INT) {
            throw new BadRow("expected a number and found " + found(parser));
        }
        return parser.getText();
    }

    private static void wantText(JsonParser parser, String what) throws IOException, BadRow {
        if (parser.currentToken() != JsonToken.VALUE_STRING) {
            throw new BadRow("expected " + what + " and found " + found(parser));
        }
    }

    /** An escaped half of a character would turn into something else on the way out. */
    private static String checkSurrogates(String text) throws BadRow {
        for (int i = 0; i < text.length(); i++) {
            char c = text.charAt(i);
            if (Character.isSurrogate(c)) {
                boolean pair = Character.isHighSurrogate(c) && i + 1 < text.length()
                        && Character.isLowSurrogate(text.charAt(i + 1));
                if (!pair) {
                    throw new BadRow("holds half of a surrogate pair");
                }
                i++;
            }
        }
        return text;
    }
}
