// The module vorn_uri.
