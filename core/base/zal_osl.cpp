// The module zal_osl.
