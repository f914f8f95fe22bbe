<?php

// Where crash reports are kept: in a folder of this machine, or in a PostgreSQL database that several machines share.

declare(strict_types=1);

// A warning of PHP's is a failure here: a file that was not written whole, a folder that is not there.
set_error_handler(static function (int $level, string $message, string $file, int $line): never {
    throw new ErrorException($message, 0, $level, $file, $line);
});

/** A report is its fields by name, each a string of bytes: these, the last two where the sender gave them. */
const FIELDS = ['crashlog', 'email', 'info'];

interface ReportStore
{
    /**
     * Returns once the report would outlive a loss of power, and throws otherwise. Equal reports are stored once, with
     * the time when the last one arrived.
     */
    public function add(array $fields): void;

    /** The reports, oldest first: 'name', 'received' (seconds since 1970), 'email' (or ''), 'bytes' of the log. */
    public function list(): iterable;

    /** One field of a report, or null. */
    public function field(string $name, string $field): ?string;

    /**
     * Deletes a report at once: nobody finds half of it. With a time (seconds since 1970) only if it did not arrive
     * again since, even if it does so just now. Returns whether there was such a report.
     */
    public function remove(string $name, ?int $before = null): bool;

    /** Deletes what was left behind by requests and commands that were ended in the middle. */
    public function tidy(): void;
}

/** The store at a folder's path or a database's source name ("pgsql:..."); without one, the one of the pool. */
function openStore(?string $place = null): ReportStore
{
    $place ??= getenv('REPORT_STORE', true) ?: '/var/lib/crash-reports';
    return str_starts_with($place, 'pgsql:') ? new DatabaseStore($place) : new FolderStore($place);
}

/** The name of a report: 64 hexadecimal digits, the same for the same fields in whatever order they arrived. */
function nameOf(array $fields): string
{
    ksort($fields);
    $hash = hash_init('sha256');
    foreach ($fields as $name => $value) {
        // With its length in front, no content can pass for a field's end.
        hash_update($hash, $name . ' ' . strlen($value) . "\n");
        hash_update($hash, $value);
    }
    return hash_final($hash);
}

/**
 * A folder for each report, with a file for each field.
 *
 * A report is written and flushed as a draft and then renamed to its name, so a report that has its name is whole,
 * whenever the process or the machine stopped.
 */
final class FolderStore implements ReportStore
{
    public function __construct(private readonly string $folder)
    {
        umask(0027);
    }

    public function add(array $fields): void
    {
        $report = "$this->folder/" . nameOf($fields);
        if (!$this->renew($report)) {
            $this->write($fields, $report);
        }
        // Also for one that was there before: whoever wrote it may have been stopped just before this.
        $this->flush($this->folder);
    }

    public function list(): iterable
    {
        $received = [];
        foreach (scandir($this->folder) as $name) {
            if (preg_match('/^[0-9a-f]{64}$/D', $name)) {
                $received[$name] = $this->unlessGone("$this->folder/$name", filemtime(...));
            }
        }
        asort($received);
        foreach (array_filter($received, is_int(...)) as $name => $time) {
            $email = $this->field($name, 'email') ?? '';
            $bytes = $this->unlessGone("$this->folder/$name/crashlog", filesize(...));
            if ($bytes !== null) {
                yield ['name' => $name, 'received' => $time, 'email' => $email, 'bytes' => $bytes];
            }
        }
    }

    public function field(string $name, string $field): ?string
    {
        return $this->unlessGone("$this->folder/$name/$field", file_get_contents(...));
    }

    public function remove(string $name, ?int $before = null): bool
    {
        $report = "$this->folder/$name";
        $draft = $this->draftName();
        $lock = $this->lock($this->folder, LOCK_EX);
        $received = $this->unlessGone($report, filemtime(...));
        if ($received === null || $received >= ($before ?? PHP_INT_MAX)) {
            return false;
        }
        rename($report, $draft);
        fclose($lock);
        $this->discard($draft);
        $this->flush($this->folder);
        return true;
    }

    public function tidy(): void
    {
        $lock = $this->lock($this->folder, LOCK_EX);
        $drafts = preg_grep('/^\.draft-/', scandir($this->folder));
        fclose($lock);
        foreach ($drafts as $name) {
            $draft = "$this->folder/$name";
            // What is being written gets its name or is given up; what is here after that is nobody's.
            $lock = $this->unlessGone($draft, fn(string $path): mixed => $this->lock($path, LOCK_EX));
            $this->discard($draft);
        }
    }

    /** Has a report that is there arrive now, durably; false when there is none. */
    private function renew(string $report): bool
    {
        // Between the look at it and its new date, nobody may take it for an old one.
        $lock = $this->lock($this->folder, LOCK_SH);
        if (!is_dir($report)) {
            return false;
        }
        touch($report);
        $this->flush($report);
        return true;
    }

    private function write(array $fields, string $report): void
    {
        $draft = $this->draftName();
        try {
            // Whoever has the store to himself sees no draft whose writer has not locked it yet.
            $making = $this->lock($this->folder, LOCK_SH);
            mkdir($draft, 0750);
            $writing = $this->lock($draft, LOCK_SH);
            fclose($making);
            foreach ($fields as $field => $value) {
                $this->writeFile("$draft/$field", $value);
            }
            $this->flush($draft);
            rename($draft, $report);
        } catch (ErrorException $failure) {
            // A draft that stayed would keep a full disk full.
            $this->discard($draft);
            // The same report may have arrived twice at a time, and the other one was faster.
            if (!is_dir($report)) {
                throw $failure;
            }
        }
    }

    private function writeFile(string $path, string $content): void
    {
        $file = fopen($path, 'xb');
        if (fwrite($file, $content) !== strlen($content) || !fsync($file) || !fclose($file)) {
            throw new ErrorException("$path was not written whole");
        }
    }

    /** Makes the names in a folder outlive a loss of power. */
    private function flush(string $folder): void
    {
        $handle = fopen($folder, 'rb');
        if (!fsync($handle)) {
            throw new ErrorException("$folder was not flushed");
        }
    }

    /**
     * Held until the handle goes, with its process at the latest: whoever deletes waits for those who renew a report or
     * write a draft, and they for him.
     */
    private function lock(string $folder, int $kind): mixed
    {
        $handle = fopen($folder, 'rb');
        if (!flock($handle, $kind)) {
            throw new ErrorException("$folder was not locked");
        }
        return $handle;
    }

    private function draftName(): string
    {
        return "$this->folder/.draft-" . bin2hex(random_bytes(8));
    }

    private function discard(string $draft): void
    {
        // Another process may be at it as well.
        foreach (array_diff($this->unlessGone($draft, scandir(...)) ?? [], ['.', '..']) as $field) {
            $this->unlessGone("$draft/$field", unlink(...));
        }
        $this->unlessGone($draft, rmdir(...));
    }

    /** What the function says of a path, or null where there is nothing (any more): others delete at the same time. */
    private function unlessGone(string $path, callable $function): mixed
    {
        clearstatcache(true, $path);
        try {
            return $function($path);
        } catch (ErrorException) {
            clearstatcache(true, $path);
            // Where there is something after all, it failed for another reason, or a report has come back.
            return file_exists($path) ? $function($path) : null;
        }
    }
}

/** A row for each report, in the table of schema.sql. */
final class DatabaseStore implements ReportStore
{
    private readonly PDO $database;

    public function __construct(string $source)
    {
        // Seconds for each address of the database's host; PDO overrides a connect_timeout in the source.
        $this->database = new PDO($source, options: [PDO::ATTR_TIMEOUT => 5]);
        // An answer must mean that the row is on disk, also where the server's configuration has commits return before
        // (with fsync = off, only the server's administrator can help); and the sender gives up after a minute.
        $this->database->exec("SET synchronous_commit = on; SET statement_timeout = '30s'");
    }

    public function add(array $fields): void
    {
        $insert = $this->database->prepare(
            'INSERT INTO crash_report (name, crashlog, email, info) VALUES (?, ?, ?, ?)
             ON CONFLICT (name) DO UPDATE SET received = now()');
        $insert->bindValue(1, nameOf($fields));
        foreach (FIELDS as $index => $field) {
            $value = $fields[$field] ?? null;
            $insert->bindValue($index + 2, $value, $value === null ? PDO::PARAM_NULL : PDO::PARAM_LOB);
        }
        $insert->execute();
    }

    public function list(): iterable
    {
        $rows = $this->database->query(
            "SELECT name, extract(epoch FROM received)::bigint AS received, coalesce(email, '') AS email,
                    octet_length(crashlog) AS bytes
             FROM crash_report ORDER BY crash_report.received",
            PDO::FETCH_ASSOC);
        foreach ($rows as $row) {
            yield ['email' => stream_get_contents($row['email'])] + $row;
        }
    }

    public function field(string $name, string $field): ?string
    {
        $query = $this->database->prepare('SELECT crashlog, email, info FROM crash_report WHERE name = ?');
        $query->execute([$name]);
        $value = $query->fetch(PDO::FETCH_ASSOC)[$field] ?? null;
        return $value === null ? null : stream_get_contents($value);
    }

    public function remove(string $name, ?int $before = null): bool
    {
        // Where the row is renewed meanwhile, the database looks at its new date.
        $delete = $this->database->prepare(
            "DELETE FROM crash_report WHERE name = ? AND received < coalesce(to_timestamp(?), 'infinity')");
        $delete->execute([$name, $before]);
        return $delete->rowCount() > 0;
    }

    public function tidy(): void
    {
        // The database itself undoes what was not finished.
    }
}
