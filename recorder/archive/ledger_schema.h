// The ledger's tables, version by version. A later version gets a step of its own behind the others; what is
// there is never changed, so that a ledger of any age comes to the present one step at a time.
#pragma once

namespace lenswire::recorder {

// kSchemaSteps[n] leads from version n to n + 1. Each runs in a transaction with the new version number.
// Times are UTC milliseconds since 1970; `to_ms` is null while it lasts.
inline constexpr const char* kSchemaSteps[] = {
    R"(
    CREATE TABLE stream(id INTEGER PRIMARY KEY, name TEXT UNIQUE NOT NULL);
    CREATE TABLE watch(stream INTEGER NOT NULL REFERENCES stream, from_ms INTEGER NOT NULL, to_ms INTEGER);
    CREATE INDEX watch_time ON watch(stream, from_ms);
    CREATE INDEX watch_open ON watch(stream) WHERE to_ms IS NULL;
    CREATE TABLE segment(
        stream INTEGER NOT NULL REFERENCES stream, path TEXT UNIQUE NOT NULL,
        from_ms INTEGER NOT NULL, to_ms INTEGER, camera_from_ms INTEGER NOT NULL, camera_to_ms INTEGER,
        frames INTEGER, bytes INTEGER, sha256 TEXT,
        state TEXT NOT NULL CHECK(state IN ('open', 'finished', 'recovered')));
    CREATE INDEX segment_time ON segment(stream, from_ms);
    CREATE INDEX segment_age ON segment(from_ms);
    CREATE INDEX segment_open ON segment(stream) WHERE state = 'open';
    CREATE INDEX segment_bare ON segment(path) WHERE sha256 = '';
    CREATE TABLE gap(
        stream INTEGER NOT NULL REFERENCES stream, from_ms INTEGER NOT NULL, to_ms INTEGER,
        side TEXT NOT NULL, cause TEXT NOT NULL, detail TEXT NOT NULL);
    CREATE INDEX gap_time ON gap(stream, from_ms);
    CREATE INDEX gap_open ON gap(stream) WHERE to_ms IS NULL;
    CREATE TABLE event(at_ms INTEGER NOT NULL, stream INTEGER, kind TEXT NOT NULL, text TEXT NOT NULL);
    CREATE INDEX event_time ON event(at_ms);
    CREATE TABLE alive(one INTEGER PRIMARY KEY CHECK(one = 1), at_ms INTEGER NOT NULL);
    )",
};

}  // namespace lenswire::recorder
