# SPDX-License-Identifier: Apache-2.0
"""Sample networks of libkelnn: their data and their training, each run as `python3 -m models.NETWORK.train`.

labels/    labelled directories: read, written, checked
sources/   where pictures of persons and things and sounds come from: drawn, photographed, rendered, recorded
scenes/    from sources to a labelled frame: camera, composing, crops
training/  one way to train and export any of the networks
A folder for each network has its data, its layers, its loss, its card and the network itself.
"""
