// The module zal_mutex.
