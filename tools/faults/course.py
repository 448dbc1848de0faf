"""What the rules of a misbehaving modem do to a command: which faults its exchanges are tried with,
which requests each strikes, and what the command has to say of it."""

import dataclasses
import random

OK, REFUSED, NO_SERVICE, NO_ANSWER, MALFORMED = 0, 1, 4, 5, 6  # statuses of tovictl
BADNESS = [OK, REFUSED, MALFORMED, NO_ANSWER, NO_SERVICE]

# How long tovi waits for a response, in ms.
WAITS = {"extend": 3000, "uim": 3000, "nas": 10000, "sar": 30000, "pdc": 10000, "vs": 60000}
INDICATION_WAIT = 5000
NEVER = 900000
# A response with such a fault may still be read, and be a refusal.
LEFT_READABLE = ("short", "len", "twice", "delay", "ind-first", "ind-twice", "ind-other", "ind-delay",
                 "no-ind")
# What comes after the response to an activation or a scan: tovi leaves it behind, tovictl waits longer.
WAITED_FOR_LONGER = (("pdc", 0x27), ("nas", 0x85))


@dataclasses.dataclass(frozen=True)
class Request:
    service: str
    service_id: int
    message: int
    body: bytes
    response: bytes = b""  # of an undisturbed run, as is:
    indicates: bool = False

    @property
    def key(self):
        return self.service_id, self.message, self.body


@dataclasses.dataclass(frozen=True)
class Rule:
    where: str
    action: str

    def __str__(self):
        return f"{self.where}={self.action}"

    @property
    def service(self):
        return self.where.split("#")[0]

    @property
    def number(self):
        return int(self.where.partition("#")[2] or 0)

    @property
    def word(self):
        return self.action.split(":")[0]

    @property
    def value(self):
        value = self.action.partition(":")[2]
        return int(value) if value else None

    def refuses(self):
        return self.word in ("error", "result")

    def is_outage(self):
        return self.word in ("down", "restart")

    def statuses(self, request):
        """What the exchange that it strikes may end with; nothing when it is not known."""
        if self.refuses():
            return {REFUSED}
        if self.is_outage() or self.word in ("drop", "stray"):
            return {NO_ANSWER}
        if self.word == "delay":
            return {NO_ANSWER} if self.value > WAITS[self.service] else {OK}
        if self.word == "garbage":
            return {MALFORMED}
        if self.word == "len":
            return {MALFORMED} if self.value < 8 else {OK, MALFORMED}
        if self.word == "short":
            return self.statuses_of_cut(request)
        return {OK}

    def statuses_of_cut(self, request):
        if not request.response:
            return {OK, REFUSED, MALFORMED}
        if self.value >= len(request.response):
            return {OK}
        # At a border what is missing may be optional.
        return {OK, MALFORMED} if self.value in borders(request.response) else {MALFORMED}

    def loses_outcome(self, request):
        """Whether the outcome that follows the response is lost, or may come too late."""
        if not request.indicates:
            return False
        return self.word in ("no-ind", "ind-other") or (
            self.word == "ind-delay" and self.value > INDICATION_WAIT
            and (request.service, request.message) not in WAITED_FOR_LONGER)


def parse(rules):
    return [Rule(*rule.split("=")) for rule in rules.split(";") if rule]


def borders(body):
    """Where the TLVs of a message's body begin."""
    at, found = 0, []
    while at < len(body):
        found.append(at)
        at += 3 + int.from_bytes(body[at + 1:at + 3], "little")
    return found


def cuts(body):
    found = {0, 1, len(body) - 1, len(body)}
    for at in borders(body):
        found |= {at, at + 1, at + 3}
    return sorted(cut for cut in found if 0 <= cut <= len(body))


def rules_of(requests):
    """Each fault at each exchange of a command."""
    rules, count = [], {}
    for request in requests:
        number = count[request.service] = count.get(request.service, 0) + 1
        wait = WAITS[request.service]
        actions = ["drop", "stray", "garbage", "twice", "delay:30", f"delay:{wait + 2000}",
                   f"delay:{NEVER}", "error:3", "error:94", "down", "down:100", "restart",
                   "restart:50", "ind-first", "ind-twice", "ind-other:7", "ind-delay:100",
                   f"ind-delay:{INDICATION_WAIT + 500}", "no-ind"]
        actions += [f"short:{cut}" for cut in cuts(request.response)]
        if request.service == "extend":
            actions += ["result:-5", "result:-22", "len:0", "len:7", "len:19", "len:600"]
        rules += [Rule(f"{request.service}#{number}", action) for action in actions]
    for service in count or {"extend": 0, "uim": 0, "pdc": 0}:
        rules += [Rule(service, action)
                  for action in ("absent", "absent:100", "drop", "error:94", "garbage")]
    return rules


def pairs_of(requests, count, seed):
    chance = random.Random(seed)
    rules = rules_of(requests)
    return [chance.sample(rules, 2) for _ in range(count)]


@dataclasses.dataclass
class Step:
    """What became of a request in the modem."""
    request: Request
    reached: bool = True
    struck: Rule | None = None

    @property
    def carried_out(self):
        return self.reached and not (self.struck and (self.struck.refuses() or self.struck.is_outage()))


def courses(requests, rules):
    """All that may have become of the requests that were sent. It is one course, but for those that
    were sent while the service was away: nobody knows when it was back."""
    rules = [rule for rule in rules if rule.word != "absent"]

    def go_on(index, met, away):
        if index == len(requests):
            yield []
            return
        request = requests[index]
        if request.service in away:
            for rest in go_on(index + 1, met, away):
                yield [Step(request, reached=False)] + rest
            if away[request.service] is None:
                return
        away = {service: back for service, back in away.items() if service != request.service}
        struck, met = None, list(met)
        for i, rule in enumerate(rules):
            if rule.service == request.service:
                met[i] += 1
                if struck is None and rule.number in (0, met[i]):
                    struck = rule
        if struck and struck.is_outage():
            gone = [request.service] if struck.word == "down" else list(WAITS)
            back = struck.value if struck.word == "down" else "later"
            away = {**away, **{service: back for service in gone}}
        for rest in go_on(index + 1, met, away):
            yield [Step(request, struck=struck)] + rest

    yield from go_on(0, [0] * len(rules), {})


def worst(statuses):
    return max(statuses, key=BADNESS.index, default=OK)
