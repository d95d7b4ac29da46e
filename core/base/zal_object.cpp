// The module zal_object.
