-- The table of crash reports. Bytes, not text: a log may hold what no text of the database can, such as NUL characters.
CREATE TABLE crash_report (
    name text PRIMARY KEY CHECK (name ~ '^[0-9a-f]{64}$'),
    received timestamptz NOT NULL DEFAULT now(),
    crashlog bytea NOT NULL,
    email bytea,
    info bytea
);
CREATE INDEX ON crash_report (received);
