/* The text in which calls explain a failure. */
#ifndef QDDSC_ERROR_TEXT_H
#define QDDSC_ERROR_TEXT_H

/** What went wrong and where, for people. Filled on failure only; truncated, never unterminated. */
struct DDS_ErrorText {
    char text[1024];
};

#endif
