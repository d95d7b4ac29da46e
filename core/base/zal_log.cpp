// The module zal_log.
