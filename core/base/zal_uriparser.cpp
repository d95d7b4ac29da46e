// The module zal_uriparser.
