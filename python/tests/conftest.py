# SPDX-License-Identifier: Apache-2.0
# A package that is installed by pip registers its fixtures itself; that of a build does not.
pytest_plugins = ["vorn_nac.pytest_plugin"]
