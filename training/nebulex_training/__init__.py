"""How the network of nebulex2 is made: computed scenes, the network, its training."""
