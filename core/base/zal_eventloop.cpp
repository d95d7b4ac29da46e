// The module zal_eventloop.
