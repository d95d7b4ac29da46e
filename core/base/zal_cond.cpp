// The module zal_cond.
