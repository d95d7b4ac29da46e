// The module zal_base64.
