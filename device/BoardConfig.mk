# Included by the device's BoardConfig.mk; OX_MODEM_PATH is where the tree has this repository.
OX_MODEM_PATH ?= vendor/lyr/ox-modem

BOARD_VENDOR_SEPOLICY_DIRS += $(OX_MODEM_PATH)/device/sepolicy
DEVICE_FRAMEWORK_COMPATIBILITY_MATRIX_FILE += $(OX_MODEM_PATH)/device/compatibility_matrix.xml

# The names persist.service.atlog.* are older than the rule that a vendor's properties begin with
# "vendor." or "persist.vendor.".
BUILD_BROKEN_VENDOR_PROPERTY_NAMESPACE := true
