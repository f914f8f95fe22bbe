"""What a trial of the built program needs around it: a display, an accessibility bus, an endpoint, a user's home."""
