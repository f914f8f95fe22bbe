<?php

// Receives a crash report and stores it: answers with nothing when the report is stored, with a line of text otherwise.

declare(strict_types=1);

// Before anything that can fail. The pool's auto_prepend_file has done it already when this file is damaged or empty.
require_once __DIR__ . '/answer.php';

/**
 * The request's whole body, of so many bytes at most. PHP passes a body that was cut short as if it were whole, so its
 * length is compared with the announced one; it has to be announced for that.
 */
function receivedBody(int $limit): string
{
    if (($_SERVER['REQUEST_METHOD'] ?? '') !== 'POST') {
        header('Allow: POST');
        Answer::refuse(405, 'Crash reports are sent with POST.');
    }
    $announced = $_SERVER['CONTENT_LENGTH'] ?? '';
    if (!ctype_digit($announced)) {
        Answer::refuse(411, 'The length of the report is not announced.');
    }
    if ((int) $announced > $limit) {
        Answer::refuse(413, "The report is longer than $limit bytes.");
    }
    $body = file_get_contents('php://input', length: $limit + 1);
    if (strlen($body) !== (int) $announced) {
        Answer::refuse(400, 'The report was cut short: ' . strlen($body) . " of $announced bytes arrived.");
    }
    return $body;
}

/** The boundary (RFC 2046 section 5.1.1) that the Content-Type announces. */
function announcedBoundary(): string
{
    $type = $_SERVER['CONTENT_TYPE'] ?? '';
    if (!preg_match('~^multipart/form-data;\s*boundary="?([-0-9A-Za-z\'()+_,./:=?]{1,70})"?$~Di', $type, $match)) {
        Answer::refuse(415, 'The report is no multipart/form-data.');
    }
    return $match[1];
}

/**
 * The fields of a multipart/form-data body (RFC 7578) by name, byte for byte.
 *
 * The program ends a body with the last part's line break, so the closing delimiter may be missing. PHP's own parser
 * takes that, too; but it runs before any script, and where it meets one of its limits none could say so.
 */
function fieldsOf(string $body, string $boundary): array
{
    // A line break belongs to every delimiter but the first, which stands at the beginning.
    $parts = explode("\r\n--$boundary", "\r\n" . $body);
    // A large report is held three times at most; memory_limit counts on that.
    unset($body);
    $before = array_shift($parts);
    $last = array_pop($parts) ?? '';
    $isClosed = $last === '--' || $last === "--\r\n";
    if ($before !== '' || !($isClosed || str_ends_with($last, "\r\n"))) {
        Answer::refuse(400, 'The report is not whole.');
    }
    if (!$isClosed) {
        $parts[] = substr($last, 0, -2);
    }
    $fields = [];
    $header = '~^\r\nContent-Disposition: form-data; name="(' . implode('|', FIELDS) . ')"\r\n\r\n~';
    foreach ($parts as $part) {
        if (!preg_match($header, $part, $match) || isset($fields[$match[1]])) {
            Answer::refuse(400, 'The report has a part that the program does not send.');
        }
        $fields[$match[1]] = substr($part, strlen($match[0]));
    }
    return $fields;
}

function storeReport(): void
{
    $limit = (int) (getenv('REPORT_LIMIT', true) ?: 33_554_432);
    $fields = fieldsOf(receivedBody($limit), announcedBoundary());
    if (!isset($fields['crashlog'])) {
        Answer::refuse(400, 'There is no crash log in the report.');
    }
    openStore()->add($fields);
}

try {
    require_once __DIR__ . '/stores.php';
    storeReport();
    Answer::accept();
} catch (Throwable $failure) {
    // The administrator reads why in PHP's log; it is nothing to tell a stranger.
    error_log("crash report not stored: {$failure->getMessage()}");
    Answer::refuse(503, 'The report could not be stored.');
}
