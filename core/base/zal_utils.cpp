// The module zal_utils.
