/* ResourceTestIds.h - the identifiers of the test resource module, shared by
 * ResourceTest.rc and the suites that read it. */
#ifndef RESOURCETESTIDS_H
#define RESOURCETESTIDS_H

/* Strings spread over several bundles of 16: the first and last of bundle 1,
 * the first two of bundle 2, one in the middle, the last of the last bundle. */
#define IDS_FIRST 0
#define IDS_LAST_OF_FIRST_BUNDLE 15
#define IDS_FIRST_OF_SECOND_BUNDLE 16
#define IDS_SECOND_OF_SECOND_BUNDLE 17
#define IDS_MIDDLE 4000
#define IDS_LAST 65535

/* Strings of these lengths in characters, around the 128-byte steps in which
 * string loading grows its buffer. */
#define IDS_LENGTH_1 100
#define IDS_LENGTH_126 101
#define IDS_LENGTH_127 102
#define IDS_LENGTH_128 103
#define IDS_LENGTH_254 104
#define IDS_LENGTH_255 105
#define IDS_LENGTH_256 106

/* A string with a character outside ASCII (e with acute accent). */
#define IDS_ACCENTED 110

/* A table kept 1000 higher than the numbers its code uses: a location with
 * base 1000 reads it as strings 0 to 9. Nothing is held at 2000 and above
 * except IDS_MIDDLE and IDS_LAST. */
#define IDS_SHIFTED_BASE 1000
#define IDS_SHIFTED_COUNT 10

/* Tagged structures (raw data). */
#define STRUCT_WORKED_EXAMPLE 201 /* A = 5, BC = 0x1234, the empty tag */
#define STRUCT_NO_TERMINATOR 202  /* the same without the empty tag */
#define STRUCT_CUT_VALUE 203      /* A = 5, then BC with one byte of value */
#define STRUCT_EMPTY 204          /* the empty tag alone */
#define STRUCT_TRAILING 205       /* A = 5, the empty tag, then more records */
#define STRUCT_REPEATED_TAG 206   /* A = 1, A = 2, the empty tag */
#define STRUCT_CUT_TAG 207        /* A = 5, then "BC" without its zero byte */

/* Raw data under a number; a custom type under a number. Names (the worked
 * example again as WORKEDEXAMPLE, the custom type QVDATA, raw data LANGUAGES
 * in three languages) stand in the .rc itself, since a resource compiler
 * takes a name only as it is. */
#define RAW_NUMBERED 100
#define CUSTOM_TYPE_NUMBER 300
#define CUSTOM_NUMBERED 7

#endif /* RESOURCETESTIDS_H */
