"""What a run of the mutants has shown, beside what is claimed of them."""
from mutant import RANKS


class BadClaim(Exception):
    pass


def read_claims(path, room):
    """The claims of equivalence for a room: the mutant's key, and the reason why no test can tell it from the source."""
    claims = {}
    key = None
    for number, line in enumerate(path.read_text().splitlines(), start=1):
        if not line.strip() or line.startswith("#"):
            continue
        if not line.startswith(" "):
            key = line.strip()
            if key.count(" | ") < 3:
                raise BadClaim(f"{path.name}:{number}: not FILE | FUNCTION | OPERATOR | TEXT -> TEXT")
            claims[key] = ""
        elif key is not None:
            claims[key] = f"{claims[key]} {line.strip()}".strip()
    for key, reason in claims.items():
        if not reason:
            raise BadClaim(f"{path.name}: no reason: {key}")
    return {key: reason for key, reason in claims.items() if key.startswith(f"concurrency/{room}/")}


def shown(mutant):
    return f"{mutant.file}:{mutant.line}: {mutant.operator}: {mutant.original} -> {mutant.mutated}"


def share(part, whole):
    return f"{100 * part / whole:.1f} %" if whole else "-"


def table(verdicts, claims):
    lines = [f"{'':16}{'mutants':>8}{'killed':>8}{'survived':>10}{'unreached':>11}{'claimed':>9}{'killed':>9}"]
    for operator in [*RANKS, None]:
        ran = [each for each in verdicts if operator in (None, each.mutant.operator) and each.outcome != "not run"]
        if not ran:
            continue
        counts = [sum(each.outcome == outcome for each in ran) for outcome in ("killed", "survived", "unreached")]
        claimed = sum(each.mutant.key in claims and each.outcome != "killed" for each in ran)
        lines.append(f"{operator or 'all':16}{len(ran):8}{counts[0]:8}{counts[1]:10}{counts[2]:11}{claimed:9}"
                     f"{share(counts[0], len(ran)):>9}")
    return lines


def wrong_claims(verdicts, claims, mutants):
    keys = {each.key for each in mutants}
    wrong = [f"claimed equivalent, but there is no such mutant: {key}" for key in claims if key not in keys]
    wrong += [f"claimed equivalent, but killed by {each.test}: {each.mutant.key}"
              for each in verdicts if each.mutant.key in claims and each.outcome == "killed"]
    return wrong


def write_report(path, room, verdicts, claims, mutants, removed, whole, seconds):
    """Prints the table, writes it with each survivor; returns the exit code."""
    verdicts = sorted(verdicts, key=lambda each: each.mutant.number)
    left = sum(each.outcome == "not run" for each in verdicts)
    head = f"{room}: {len(mutants)} mutants, {removed} more do not compile; {seconds:.0f} s"
    if not whole or left:
        head += f"; {len(verdicts) - left} of them were run"
    lines = [head, "", *table(verdicts, claims), ""]
    for title, outcomes, claimed in (("survived", ("survived", "unreached"), False), ("claimed equivalent", ("survived", "unreached"), True)):
        listed = [each for each in verdicts if each.outcome in outcomes and (each.mutant.key in claims) == claimed]
        if listed:
            lines.append(f"{title}:")
            for each in listed:
                tests = f"{each.tests} tests" if each.tests else "no test reaches it"
                lines.append(f"  {shown(each.mutant)}  [{tests}]")
                lines.append(f"    {claims[each.mutant.key] if claimed else each.mutant.key}")
            lines.append("")
    wrong = wrong_claims(verdicts, claims, mutants)
    lines += wrong
    killed = [f"  {shown(each.mutant)}  [{each.how}: {each.test}]" for each in verdicts if each.outcome == "killed"]
    path.write_text("\n".join([*lines, "", "killed:", *killed, ""]))
    print("\n".join(lines[:lines.index("survived:")] if "survived:" in lines else lines))
    print("\n".join(wrong))
    print(f"\nThe survivors are in {path}")
    return 1 if wrong else 0
