/* The version of these headers. The library has the same in its file: `readelf -p .note.lenswire`. */
#ifndef LENSWIRE_VERSION_H
#define LENSWIRE_VERSION_H

/* Everything else takes the version from these three lines: the build, the packages, the programs. */
#define LENSWIRE_VERSION_MAJOR 0
#define LENSWIRE_VERSION_MINOR 1
#define LENSWIRE_VERSION_PATCH 0

/* "0.1.0" for the numbers above. */
#define LENSWIRE_VERSION \
    LENSWIRE_VERSION_TEXT(LENSWIRE_VERSION_MAJOR, LENSWIRE_VERSION_MINOR, LENSWIRE_VERSION_PATCH)
#define LENSWIRE_VERSION_TEXT(major, minor, patch) LENSWIRE_VERSION_JOIN(major, minor, patch)
#define LENSWIRE_VERSION_JOIN(major, minor, patch) #major "." #minor "." #patch

#endif
