"""A service that runs the programs of "StreamConnect" filters.

`python -m nimbrel.service` starts it; `python -m nimbrel.service --help` describes the options and
the protocol. `running_service` starts it in another process for the length of a `with` block:

    from nimbrel import Simulator, read, reset, x
    from nimbrel.service import running_service

    with running_service("--filter", "StreamBitQPU") as (host, port):
        with Simulator("StreamConnect") as sim:
            sim.connect(host, port)
            print(sim.fetch(2, 1, reset(1), x(0), read(0, 2)))

The service has no authentication: everyone who can reach its port can use it.

The modules, from the command line down to the engine:

    __main__       the options
    server         the listening socket, the standard streams and the end of the service
    connections    the clients: their number, their turns, their limits of time
    session        the records of one client and the limits on them
    replies        the reply to a fetch request
    process        `running_service`
"""

from nimbrel.service.process import running_service

__all__ = ["running_service"]
