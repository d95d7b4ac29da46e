// The module zal_client.
