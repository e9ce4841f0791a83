# Inherited by the device's product: the library brings its init file and its manifest along.
PRODUCT_PACKAGES += libox-modem
