// The module zal_message.
