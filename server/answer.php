<?php

// The answer to a report: a refusal, unless the endpoint has said that the report is stored.

declare(strict_types=1);

/**
 * The sender takes an empty answer for "accepted", an error's as well, so silence has to be earned: whatever ends a
 * request early (a fatal error, a limit, an empty or damaged script) ends it with a line of text.
 */
final class Answer
{
    private static int $status = 503;
    private static ?string $refusal = 'The report was not stored.';

    /** Ends the request. The reason is one line; the sender's user finds it in the diagnostic log. */
    public static function refuse(int $status, string $reason): never
    {
        self::$status = $status;
        self::$refusal = $reason;
        exit;
    }

    /** To be called last: the report is stored, and would outlive a loss of power. */
    public static function accept(): void
    {
        header('Content-Length: 0');
        self::$refusal = null;
    }

    /** Called by PHP itself, however the request ends. */
    public static function send(): void
    {
        // What warnings may have printed would refuse a stored report, and PHP drops a buffer when memory ran out.
        while (ob_get_level() > 0) {
            ob_end_clean();
        }
        if (self::$refusal === null) {
            return;
        }
        http_response_code(self::$status);
        header('Content-Type: text/plain; charset=utf-8');
        echo self::$refusal, "\n";
    }
}

register_shutdown_function(Answer::send(...));
